// JSONLine: a result for programs.
#pragma once

#include <ostream>

#include "json/Writer.h"

namespace airflow::tool {

/// Writes an object, whose members `body` gives the writer, as one line. Returns the exit status:
/// 1, with a line on `err`, when a number or a text in it has no JSON form.
template <typename Body>
[[nodiscard]] int writeJSONLine(Body body, std::ostream& out, std::ostream& err) {
    json::Writer writer;
    writer.object([&] { body(writer); });
    const auto text = writer.take();
    if (!text) {
        err << text.error().codingPath << ": " << text.error().description << '\n';
        return 1;
    }
    out << *text << '\n';
    return 0;
}

}  // namespace airflow::tool
