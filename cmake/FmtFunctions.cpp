// The functions of fmt 9, for programs that are linked without its shared library. The package has
// no archive of them; this header is their source.
#include <fmt/format-inl.h>

#include <locale>

namespace fmt {

template std::locale detail::locale_ref::get<std::locale>() const;
template detail::thousands_sep_result<char> detail::thousands_sep_impl<char>(locale_ref);
template char detail::decimal_point_impl<char>(locale_ref);

}  // namespace fmt
