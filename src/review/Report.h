// Report: where the checks of a plan put what they find.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "review/Finding.h"

namespace airflow::review {

/// A finding whose place in the text is not known yet.
struct Remark {
    Finding finding;
    std::optional<std::size_t> member;  ///< the node whose key is meant, not what the pointer names
};

struct Report {
    std::vector<Remark> remarks;

    void add(Subject subject, std::string pointer, std::string reason, std::string advice,
             std::optional<std::size_t> member = {}) {
        remarks.push_back({.finding = {.subject = subject,
                                       .pointer = std::move(pointer),
                                       .position = {},
                                       .reason = std::move(reason),
                                       .advice = std::move(advice)},
                           .member = member});
    }
};

}  // namespace airflow::review
