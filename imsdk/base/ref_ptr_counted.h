#pragma once

#include <atomic>

namespace base {

// Counting policies for RefPtrCounted.
struct ThreadSafeRefPolicy {
    using Count = std::atomic<long>;
    static long Increment(Count& c) { return c.fetch_add(1, std::memory_order_relaxed) + 1; }
    static long Decrement(Count& c) { return c.fetch_sub(1, std::memory_order_acq_rel) - 1; }
};

struct SingleThreadRefPolicy {
    using Count = long;
    static long Increment(Count& c) { return ++c; }
    static long Decrement(Count& c) { return --c; }
};

// Implements the AddRef/Release pair of an SDK interface, so that a host object handed to
// the SDK (which keeps its own reference) lives as long as its last holder:
//   class CHostApplication : public base::RefPtrCounted<openim::IHostApplication> {...};
template <class Interface, class Policy = ThreadSafeRefPolicy>
class RefPtrCounted : public Interface {
public:
    long AddRef() override { return Policy::Increment(count_); }
    long Release() override {
        long left = Policy::Decrement(count_);
        if (left == 0) delete this;
        return left;
    }

protected:
    RefPtrCounted() = default;
    virtual ~RefPtrCounted() = default;

private:
    typename Policy::Count count_{0};
};

}  // namespace base
