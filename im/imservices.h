#pragma once

#include <QString>

#include "base/scoped_refptr.h"
#include "prg/iprg_com.h"

namespace openim {
class IConversation;
class ITribe;
}  // namespace openim

// Finding the SDK's services and the conversation or tribe behind an id. A service is
// fetched for one use and released when the holder goes: never cached, as the SDK may
// replace them.
class ImServices {
public:
    template <class T>
    static base::scoped_refptr<T> get(const char* module, const char* iface) {
        base::scoped_refptr<T> out;
        if (prg::IPrgCOM* root = GetPrgCOM()) out.adopt(root->GetService<T>(module, iface));
        return out;
    }

    // The one-to-one conversation with a colleague; null when the SDK has none.
    static base::scoped_refptr<openim::IConversation> conversation(const QString& id);
    // The tribe of a project; null when the SDK has none or the id is not a number.
    static base::scoped_refptr<openim::ITribe> tribe(const QString& id);
};
