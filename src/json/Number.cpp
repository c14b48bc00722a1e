#include "json/Number.h"

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <iterator>
#if __has_include(<xlocale.h>)
#include <xlocale.h>
#endif

namespace airflow::json {

namespace {

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

/// Reads a number from its first byte to its last.
class Scan {
public:
    explicit Scan(std::string_view text) : text(text) {}

    std::size_t offset() const { return at; }
    bool takes(char wanted) {
        if (at == text.size() || text[at] != wanted) return false;
        ++at;
        return true;
    }
    bool takesDigits() {
        const std::size_t start = at;
        while (at < text.size() && isDigit(text[at])) ++at;
        return at > start;
    }

private:
    std::string_view text;
    std::size_t at = 0;
};

}  // namespace

WrittenNumber firstNumber(std::string_view text) {
    Scan scan(text);
    bool isInteger = true;
    const auto result = [&](std::string_view reason = {}) {
        return WrittenNumber{.length = scan.offset(), .isInteger = isInteger, .reason = reason};
    };
    scan.takes('-');
    // Nothing but a fraction or an exponent belongs to a number after a leading zero.
    if (!scan.takes('0') && !scan.takesDigits()) {
        return result("invalid number; expected digit after '-'");
    }
    if (scan.takes('.')) {
        isInteger = false;
        if (!scan.takesDigits()) return result("invalid number; expected digit after '.'");
    }
    if (scan.takes('e') || scan.takes('E')) {
        isInteger = false;
        const bool isSigned = scan.takes('+') || scan.takes('-');
        if (!scan.takesDigits()) {
            return result(isSigned ? "invalid number; expected digit after exponent sign"
                                   : "invalid number; expected '+', '-', or digit after exponent");
        }
    }
    return result();
}

double nearestDouble(const std::string& number) {
    static const locale_t classic = newlocale(LC_ALL_MASK, "C", nullptr);
    return strtod_l(number.c_str(), nullptr, classic);
}

}  // namespace airflow::json
