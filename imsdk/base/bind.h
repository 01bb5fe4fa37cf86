#pragma once

#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

#include "base/callback.h"
#include "base/ref_counted.h"
#include "base/scoped_refptr.h"

namespace base {

namespace internal {

template <class T>
constexpr bool kIsRefCounted = std::is_base_of_v<RefCountedThreadSafe<T>, T>;

// How a receiver is held: a reference for ref-counted classes (so the object outlives
// every pending callback), a plain pointer otherwise.
template <class T, bool = kIsRefCounted<T>>
struct ReceiverHolder {
    explicit ReceiverHolder(T* p) : ptr(p) {}
    T* get() const { return ptr.get(); }
    scoped_refptr<T> ptr;
};

template <class T>
struct ReceiverHolder<T, false> {
    explicit ReceiverHolder(T* p) : ptr(p) {}
    T* get() const { return ptr; }
    T* ptr;
};

// Signature left after the first N parameters have been bound.
template <std::size_t N, class R, class Tuple,
          class = std::make_index_sequence<std::tuple_size_v<Tuple> - N>>
struct UnboundRunType;

template <std::size_t N, class R, class Tuple, std::size_t... I>
struct UnboundRunType<N, R, Tuple, std::index_sequence<I...>> {
    using type = R(std::tuple_element_t<N + I, Tuple>...);
};

template <class R, class Sig>
struct Invoker;

template <class R, class... Unbound>
struct Invoker<R, R(Unbound...)> {
    template <class F, class... Bound>
    static Callback<R(Unbound...)> Make(F f, Bound... bound) {
        return Callback<R(Unbound...)>(
            [f = std::move(f), bound = std::make_tuple(std::move(bound)...)](Unbound... args) -> R {
                return std::apply(
                    [&](const auto&... b) -> R { return f(b..., std::forward<Unbound>(args)...); },
                    bound);
            });
    }
};

}  // namespace internal

// Binds a member function (of the receiver's class or one of its bases) and leading
// arguments. A receiver derived from RefCountedThreadSafe is kept alive by every copy of
// the callback.
template <class R, class T, class... Params, class Obj, class... Bound,
          class = std::enable_if_t<std::is_base_of_v<T, Obj>>>
Callback<typename internal::UnboundRunType<sizeof...(Bound), R, std::tuple<Params...>>::type> Bind(
    R (T::*method)(Params...), Obj* receiver, Bound&&... bound) {
    using Sig = typename internal::UnboundRunType<sizeof...(Bound), R, std::tuple<Params...>>::type;
    internal::ReceiverHolder<Obj> holder(receiver);
    auto call = [method, holder](auto&&... args) -> R {
        return (holder.get()->*method)(std::forward<decltype(args)>(args)...);
    };
    return internal::Invoker<R, Sig>::Make(std::move(call), std::decay_t<Bound>(bound)...);
}

template <class R, class T, class... Params, class Obj, class... Bound,
          class = std::enable_if_t<std::is_base_of_v<T, Obj>>>
Callback<typename internal::UnboundRunType<sizeof...(Bound), R, std::tuple<Params...>>::type> Bind(
    R (T::*method)(Params...) const, Obj* receiver, Bound&&... bound) {
    using Sig = typename internal::UnboundRunType<sizeof...(Bound), R, std::tuple<Params...>>::type;
    internal::ReceiverHolder<Obj> holder(receiver);
    auto call = [method, holder](auto&&... args) -> R {
        return (holder.get()->*method)(std::forward<decltype(args)>(args)...);
    };
    return internal::Invoker<R, Sig>::Make(std::move(call), std::decay_t<Bound>(bound)...);
}

template <class Method, class Obj, class... Bound>
auto Bind(Method method, const scoped_refptr<Obj>& receiver, Bound&&... bound) {
    return Bind(method, receiver.get(), std::forward<Bound>(bound)...);
}

// Binds a free function and leading arguments.
template <class R, class... Params, class... Bound>
Callback<typename internal::UnboundRunType<sizeof...(Bound), R, std::tuple<Params...>>::type> Bind(
    R (*function)(Params...), Bound&&... bound) {
    using Sig = typename internal::UnboundRunType<sizeof...(Bound), R, std::tuple<Params...>>::type;
    return internal::Invoker<R, Sig>::Make(function, std::decay_t<Bound>(bound)...);
}

}  // namespace base
