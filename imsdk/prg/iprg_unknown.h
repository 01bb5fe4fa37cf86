#pragma once

namespace prg {

// Base of every SDK interface. Release is the second operation of each interface:
// the caller releases every interface it was handed once it is done with it.
class IPrgUnknown {
public:
    virtual long AddRef() = 0;
    virtual long Release() = 0;

protected:
    virtual ~IPrgUnknown() = default;
};

}  // namespace prg
