#pragma once

/// Whole-number division: the machine's, which truncates. By 0, or of the least integer by -1, it
/// ends the process; the checked build throws instead, and the frame turns that into a
/// ZeroDivisionError or an OverflowError.

#include <limits>
#include <type_traits>

#include "array.h"

namespace fragments {

#ifdef FRAGMENTS_CHECKED
struct DivisionByZero
{};
struct QuotientOverflow
{};

template <class T>
void check_division(T dividend, T divisor)
{
    if (divisor == 0) throw DivisionByZero{};
    if constexpr (std::is_signed_v<T>)
        if (divisor == -1 && dividend == std::numeric_limits<T>::min()) throw QuotientOverflow{};
}
#endif

/// dividend / divisor, in the wider type of the two.
template <class A, class B>
constexpr auto quotient(A dividend, B divisor)
{
    using T = std::common_type_t<A, B>;
#ifdef FRAGMENTS_CHECKED
    check_division<T>(dividend, divisor);
#endif
    return static_cast<T>(static_cast<T>(dividend) / static_cast<T>(divisor));
}

/// dividend % divisor, in the wider type of the two.
template <class A, class B>
constexpr auto remainder(A dividend, B divisor)
{
    using T = std::common_type_t<A, B>;
#ifdef FRAGMENTS_CHECKED
    check_division<T>(dividend, divisor);
#endif
    return static_cast<T>(static_cast<T>(dividend) % static_cast<T>(divisor));
}

} // namespace fragments
