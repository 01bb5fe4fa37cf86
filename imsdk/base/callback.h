#pragma once

#include <functional>
#include <type_traits>
#include <utility>

namespace base {

template <class Sig>
class Callback;

// A copyable function object that the SDK stores and runs later, usually made by
// base::Bind. Copies share whatever the callback holds (for a bound member function: one
// reference to the receiver each). A callback may be converted to another signature whose
// arguments it accepts, so that a member taking `const T&` serves where `T` is offered.
template <class R, class... Args>
class Callback<R(Args...)> {
public:
    using RunType = R(Args...);

    Callback() = default;
    explicit Callback(std::function<R(Args...)> fn) : fn_(std::move(fn)) {}

    template <
        class R2, class... Args2,
        class = std::enable_if_t<std::is_invocable_r_v<R, std::function<R2(Args2...)>&, Args...> &&
                                 !std::is_same_v<R(Args...), R2(Args2...)>>>
    Callback(const Callback<R2(Args2...)>& other)  // NOLINT: implicit by design
    {
        if (!other.is_null()) fn_ = other.function();
    }

    R Run(Args... args) const { return fn_(std::forward<Args>(args)...); }
    bool is_null() const { return !fn_; }
    void Reset() { fn_ = nullptr; }
    const std::function<R(Args...)>& function() const { return fn_; }

private:
    std::function<R(Args...)> fn_;
};

}  // namespace base
