// Properties: what must hold whenever the daemon runs, whatever happens to it.
//
// Bounds leave out the time that the SMC's driver spends with answers that take long: nothing can
// be written meanwhile. A fan counts as forced as the machine knows it; excepted are fans of which
// the SMC said that they went back when they did not, and for the bounds of a release those that a
// claim forced after the release that overtook it (docs/safety.md tells of that hole).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace airflow::simulation {

enum class Property : std::uint8_t {
    releaseBegins,
    releaseIsRetried,
    releaseLasts,
    silenceEndsControl,
    everyCommandIsAnsweredOnce,
    exitRestoresFirst,
    exitIsInTime,
    recoveryComesFirst,
    onlyAllowedWrites,
    forceTestIsLowered,
    stateIsTrue,
    reasonsAreTrue,
    controlLasts,
    appliedIsTrue,
    heatEndsControl,
};

struct PropertyText {
    Property property;
    std::string_view name;
    std::string_view sentence;
};

inline constexpr std::array<PropertyText, 15> properties{{
    {Property::releaseBegins, "releaseBegins",
     "Within 1 s of a connection's end, a signal, a release command or a start, every forced fan "
     "is "
     "asked to go back, whatever became of the others."},
    {Property::releaseIsRetried, "releaseIsRetried",
     "A fan that does not go back is asked again every 2.0 s, within 2.5 s, for as long as it "
     "takes."},
    {Property::releaseLasts, "releaseLasts",
     "After a release without a newer command at most one fan is asked to be forced, by the claim "
     "that had begun before, or each of those that several control steps were claiming, for no "
     "longer than 12 s and 10 s for each fan; commands that were under way may go on claiming "
     "until they are answered."},
    {Property::silenceEndsControl, "silenceEndsControl",
     "15 s after the last heartbeat or command, and a tick with a claim of 10 s for each fan, no "
     "fan is held."},
    {Property::everyCommandIsAnsweredOnce, "everyCommandIsAnsweredOnce",
     "Every command is answered exactly once, within 60 s and 20 s for each fan."},
    {Property::exitRestoresFirst, "exitRestoresFirst",
     "Before an exit of a daemon that listens, every forced fan is asked to go back, unless 3 s "
     "are over."},
    {Property::exitIsInTime, "exitIsInTime",
     "No exit takes longer than the 3 s of its restoration."},
    {Property::recoveryComesFirst, "recoveryComesFirst",
     "When the daemon begins to listen no fan is forced, and nothing was answered before."},
    {Property::onlyAllowedWrites, "onlyAllowedWrites",
     "Only mode keys (0 or 1), targets (0, or finite and within the limits that the SMC gave) and "
     "Ftst (0 or 1) are ever written."},
    {Property::forceTestIsLowered, "forceTestIsLowered",
     "3 s after a release that nothing refused, Ftst is off."},
    {Property::stateIsTrue, "stateIsTrue",
     "A state without error, plan and fans is told only when no fan is held, one with fans only "
     "until 3 s after a release that nothing refused, and a target only when it was written."},
    {Property::reasonsAreTrue, "reasonsAreTrue",
     "A safety release names a reason that exists: more than 15 s of silence, a temperature of "
     "95 °C or more, or temperatures that cannot be read."},
    {Property::controlLasts, "controlLasts",
     "A fan that a client wants at a fixed speed is not asked to go back while that client is "
     "heard every 15 s and nothing else gives a reason."},
    {Property::appliedIsTrue, "appliedIsTrue",
     "When a command is answered as applied, every fan that it wants at a fixed speed is forced, "
     "or was since it was sent."},
    {Property::heatEndsControl, "heatEndsControl",
     "When a temperature that can be read has been at 95.5 °C or more for 5 s and a claim of 10 s "
     "for each fan, no fan is held that was held before."},
}};

[[nodiscard]] constexpr const PropertyText& textOf(Property property) {
    return properties[static_cast<std::size_t>(property)];
}

/// What has to have happened in some run of many, so that these have proved anything.
inline constexpr std::array<std::string_view, 18> sometimes{
    "a fan refused ten times in a row and then went back",
    "a signal came between the releases of two fans",
    "the ceiling came while a fan refused to go back",
    "a connection ended during a claim",
    "the process was killed during recovery",
    "the process was killed while a fan was forced",
    "an exit ran into its limit of 3 s",
    "a claim succeeded after the release that overtook it",
    "the watchdog released fans",
    "the ceiling released fans",
    "missing temperatures released fans",
    "the SMC said that a fan went back when it did not",
    "an upgrade ended the process",
    "a stranger connected",
    "a start failed",
    "garbage was answered with 7",
    "the firmware took a fan back",
    "two clients had commands under way at once",
};

}  // namespace airflow::simulation
