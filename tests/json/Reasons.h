// Reasons: why a text is not decoded.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "json/Decoder.h"

namespace airflow::json {

using Integer = std::int64_t;

template <typename T>
DecodingError errorOf(std::string_view text) {
    const auto result = decode<T>(text);
    EXPECT_FALSE(result.has_value()) << text;
    return result ? DecodingError{} : result.error();
}

template <typename T>
std::string reasonOf(std::string_view text) {
    return errorOf<T>(text).description;
}

}  // namespace airflow::json
