// The compiled part of fmt 9, for linking into each program: see TovrekFmt.cmake.
#include <fmt/format-inl.h>

FMT_BEGIN_NAMESPACE
namespace detail {

// What fmt's headers declare as instantiated elsewhere, for the one character type in use here.
template thousands_sep_result<char> thousands_sep_impl<char>(locale_ref);
template char decimal_point_impl<char>(locale_ref);
template dragonbox::decimal_fp<float> dragonbox::to_decimal<float>(float) noexcept;
template dragonbox::decimal_fp<double> dragonbox::to_decimal<double>(double) noexcept;

}  // namespace detail
FMT_END_NAMESPACE
