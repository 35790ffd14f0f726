#pragma once

#include <charconv>
#include <cmath>
#include <string>
#include <version>

#ifndef __cpp_lib_to_chars
#include <cerrno>
#include <clocale>
#include <cstdlib>

#include <locale.h>
#endif

namespace vexim {

/// `std::from_chars` for a double. libc++ has it only from version 20 on. Before that we use
/// strtod, so the text must have only digits, points, signs and exponents.
inline std::from_chars_result readReal(const char* first, const char* last, double& number) {
#ifdef __cpp_lib_to_chars
    return std::from_chars(first, last, number);
#else
    static const locale_t plain = ::newlocale(LC_ALL_MASK, "C", nullptr);
    const std::string text(first, last);
    char* end = nullptr;
    errno = 0;
    const double read = ::strtod_l(text.c_str(), &end, plain);
    const char* const stop = first + (end - text.c_str());
    if (stop == first || *first == '+') return {first, std::errc::invalid_argument};
    // strtod also reports an error for subnormal numbers.
    if (errno == ERANGE && (std::isinf(read) || read == 0))
        return {stop, std::errc::result_out_of_range};
    number = read;
    return {stop, std::errc()};
#endif
}

}  // namespace vexim
