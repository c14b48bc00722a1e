#include <gmock/gmock.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "daemon/Command.h"

namespace airflow::daemon {
namespace {

using testing::ElementsAre;

/// The names of a command's arguments.
std::vector<std::string> argumentsOf(Method method) {
    std::vector<std::string> names;
    Command command = commandOf(method);
    forEachArgument(command, [&names](std::string_view name, auto&) { names.emplace_back(name); });
    return names;
}

TEST(Command, isNamedAsItsOperationAndFoundByThatName) {
    std::vector<std::string> names;
    for (const auto& description : commandDescriptions) names.emplace_back(description.name);
    EXPECT_THAT(names, ElementsAre("helperVersion", "shutdownForUpgrade", "setManualRPM",
                                   "setPercent", "fullBlast", "automatic", "applyConfig",
                                   "restoreAuto", "heartbeat", "readState"));
    for (std::uint8_t number = 0; number < 10; ++number) {
        const auto method = static_cast<Method>(number);
        EXPECT_EQ(methodOf(commandOf(method)), method);
        EXPECT_EQ(methodOf(commandNamed(names.at(number)).value()), method);
    }
    EXPECT_EQ(nameOf(Method::setManualRPM), "setManualRPM");
    EXPECT_EQ(nameOf(commandOf(Method::readState)), "readState");
}

TEST(Command, isNotFoundByAnotherSpelling) {
    EXPECT_EQ(commandNamed("setmanualrpm"), std::nullopt);
    EXPECT_EQ(commandNamed("heartbeats"), std::nullopt);
    EXPECT_EQ(commandNamed(""), std::nullopt);
}

TEST(Command, hasTheArgumentsOfItsOperation) {
    EXPECT_THAT(argumentsOf(Method::setManualRPM), ElementsAre("fan", "rpm"));
    EXPECT_THAT(argumentsOf(Method::setPercent), ElementsAre("fan", "percent"));
    EXPECT_THAT(argumentsOf(Method::applyConfig), ElementsAre("plan"));
    for (const Method method :
         {Method::helperVersion, Method::shutdownForUpgrade, Method::fullBlast, Method::automatic,
          Method::restoreAuto, Method::heartbeat, Method::readState}) {
        EXPECT_THAT(argumentsOf(method), ElementsAre()) << nameOf(method);
    }
}

TEST(Command, isRepliedToAsItsOperationIs) {
    const auto kindOf = [](Method method) { return descriptionOf(method).reply; };
    EXPECT_EQ(kindOf(Method::helperVersion), ReplyKind::version);
    EXPECT_EQ(kindOf(Method::shutdownForUpgrade), ReplyKind::acknowledgement);
    EXPECT_EQ(kindOf(Method::restoreAuto), ReplyKind::acknowledgement);
    EXPECT_EQ(kindOf(Method::heartbeat), ReplyKind::none);
    EXPECT_EQ(kindOf(Method::readState), ReplyKind::state);
    for (const Method method : {Method::setManualRPM, Method::setPercent, Method::fullBlast,
                                Method::automatic, Method::applyConfig}) {
        EXPECT_EQ(kindOf(method), ReplyKind::code) << nameOf(method);
    }
}

}  // namespace
}  // namespace airflow::daemon
