#include <gtest/gtest.h>
#include <stdlib.h>

#include <optional>
#include <string>

#include "tool/common/Terminal.h"

namespace airflow::tool {
namespace {

/// A variable of the environment, which is as it was before at the end.
class Variable {
public:
    explicit Variable(const char* variable) : name(variable) {
        if (const char* const value = getenv(name)) before = value;
    }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;
    ~Variable() { before ? setenv(name, before->c_str(), 1) : unsetenv(name); }

    void set(const char* value) const { setenv(name, value, 1); }
    void remove() const { unsetenv(name); }

private:
    const char* const name;
    std::optional<std::string> before;
};

TEST(Terminal, getsNoEscapeSequencesWhereItOrItsUserWantsNone) {
    const Variable type("TERM");
    const Variable noColour("NO_COLOR");
    noColour.remove();
    type.set("xterm-256color");
    EXPECT_TRUE(mayUseEscapes());
    type.set("dumb");
    EXPECT_FALSE(mayUseEscapes());
    type.remove();
    EXPECT_TRUE(mayUseEscapes());
    noColour.set("");
    EXPECT_TRUE(mayUseEscapes());
    noColour.set("1");
    EXPECT_FALSE(mayUseEscapes());
}

TEST(Terminal, isDrawnOverOnlyWhereThereIsOne) {
    EXPECT_FALSE(canDrawInPlace(-1));
}

}  // namespace
}  // namespace airflow::tool
