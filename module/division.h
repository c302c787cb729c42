#pragma once

/// Whole-number division: the machine's, which truncates. By 0, or of the least integer by -1, it
/// ends the process; the checked build throws instead, and the frame turns that into a
/// ZeroDivisionError or an OverflowError.

#include <cstdint>
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

/// Quotients by one divisor of dividends that come in runs with the same quotient, as neighbouring
/// linear indexes do: divides where a run ends.
class RunningQuotient
{
public:
    explicit RunningQuotient(int64_t divisor) : divisor_(divisor) {}

    int64_t operator()(int64_t dividend)
    {
        if (static_cast<uint64_t>(dividend - begin_) >= length_) divide(dividend);
        return quotient_;
    }
    int64_t remainder(int64_t dividend) { return dividend - (*this)(dividend)*divisor_; }

private:
    void divide(int64_t dividend)
    {
        quotient_ = divisor_ == 1 ? dividend : quotient(dividend, divisor_);
        begin_ = quotient_ * divisor_;
        length_ = dividend >= 0 && divisor_ > 0 ? static_cast<uint64_t>(divisor_) : 0;
    }

    int64_t divisor_;
    int64_t quotient_ = 0;
    int64_t begin_ = 0;
    uint64_t length_ = 0; ///< of the run; 0 where truncation toward zero would part it
};

} // namespace fragments
