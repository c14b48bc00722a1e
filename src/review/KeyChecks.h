// KeyChecks: members of a plan document that nobody reads.
#pragma once

#include "json/Document.h"
#include "review/Report.h"

namespace airflow::review {

/// Keys that the decoder of plans ignores, and keys that stand more than once.
void checkKeys(const json::Document& document, Report& report);

}  // namespace airflow::review
