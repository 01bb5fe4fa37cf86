#pragma once

#include <atomic>

namespace base {

// Reference count that may be raised and dropped from any thread. The object deletes
// itself when the last reference goes; derive as `class Foo : public RefCountedThreadSafe<Foo>`.
template <class T>
class RefCountedThreadSafe {
public:
    void AddRef() const { count_.fetch_add(1, std::memory_order_relaxed); }

    void Release() const {
        if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete static_cast<const T*>(this);
    }

    bool HasOneRef() const { return count_.load(std::memory_order_acquire) == 1; }

protected:
    RefCountedThreadSafe() = default;
    ~RefCountedThreadSafe() = default;
    RefCountedThreadSafe(const RefCountedThreadSafe&) = delete;
    RefCountedThreadSafe& operator=(const RefCountedThreadSafe&) = delete;

private:
    mutable std::atomic<int> count_{0};
};

}  // namespace base
