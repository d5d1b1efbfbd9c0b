#pragma once

#include <tuple>
#include <type_traits>
#include <utility>

#include "CCaller.h"
#include "utils/RKError.h"

// The parameters of one call of the data service, read off its signature
// `RKError (Service::*)(const CCaller&, Args...)`: an input (`const T&` or `T`) and an output
// (`T*`) are both held as a T in Params, so that the codec decodes a request into the inputs and
// encodes the reply from the outputs, and the call passes each back in its own form.
template <class... Args>
class CServiceCall {
    template <class Arg>
    struct Slot {
        using type = std::decay_t<Arg>;
    };
    template <class T>
    struct Slot<T*> {
        using type = T;
    };

public:
    using Params = std::tuple<typename Slot<Args>::type...>;

    template <class Service>
    static utils::RKError invoke(Service& service,
                                 utils::RKError (Service::*method)(const CCaller&, Args...),
                                 const CCaller& caller, Params& params) {
        return invokeWith(service, method, caller, params, std::index_sequence_for<Args...>());
    }

private:
    template <class Service, std::size_t... I>
    static utils::RKError invokeWith(Service& service,
                                     utils::RKError (Service::*method)(const CCaller&, Args...),
                                     const CCaller& caller, Params& params,
                                     std::index_sequence<I...>) {
        return (service.*method)(caller, argument<Args>(std::get<I>(params))...);
    }

    template <class Arg, class T>
    static decltype(auto) argument(T& value) {
        if constexpr (std::is_pointer<Arg>::value)
            return &value;
        else
            return static_cast<const T&>(value);
    }
};
