// Properties: what must hold whenever the daemon runs, whatever happens to it.
//
// Bounds leave out the time that the SMC's driver spends with answers that take long: nothing can
// be written meanwhile. A fan counts as forced as the machine knows it.
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
    hiddenFansAreFound,
    silenceEndsControl,
    heatEndsControl,
    overdueChecksEndControl,
    everyCommandIsAnsweredOnce,
    exitRestoresFirst,
    exitIsInTime,
    firstExitCounts,
    inputNeverStopsTheProcess,
    recoveryComesFirst,
    onlyAllowedWrites,
    forceTestComesFirst,
    forceTestIsLowered,
    stateIsTrue,
    reasonsAreTrue,
    controlLasts,
    appliedIsTrue,
    guardIsQuiet,
};

struct PropertyText {
    Property property;
    std::string_view name;
    std::string_view sentence;
};

inline constexpr std::array<PropertyText, 21> properties{{
    {Property::releaseBegins, "releaseBegins",
     "Within 1 s of a connection's end, a signal, a release command, a start, or a plan without "
     "it, "
     "every forced fan is asked to go back, whatever became of the others and whatever is under "
     "way."},
    {Property::releaseIsRetried, "releaseIsRetried",
     "A fan that does not go back is asked again every 2.0 s, within 2.5 s, for as long as it "
     "takes."},
    {Property::releaseLasts, "releaseLasts",
     "After a release without a newer command no fan is asked to be forced, except by what was in "
     "the driver's queue when the release came and is followed by the release's own request."},
    {Property::hiddenFansAreFound, "hiddenFansAreFound",
     "A fan that nobody wants forced and that the start could not find is given back within 2.5 s "
     "after its mode key can be read, and one that was said to have gone back within 4.5 s after "
     "the SMC tells the truth."},
    {Property::silenceEndsControl, "silenceEndsControl",
     "15 s after the last heartbeat or command, and a tick (5 s), or the guard (9 s) where the "
     "wall "
     "clock was set back or no check is made, and 10 s for each fan where a claim was refused, no "
     "fan is held."},
    {Property::heatEndsControl, "heatEndsControl",
     "When a temperature that can be read has been at 95.5 °C or more for 5 s, and 10 s for each "
     "fan where a claim was refused, no fan is held."},
    {Property::overdueChecksEndControl, "overdueChecksEndControl",
     "12 s after the last completed check, and 10 s for each fan where a claim was refused, no fan "
     "is held."},
    {Property::everyCommandIsAnsweredOnce, "everyCommandIsAnsweredOnce",
     "Every command is answered exactly once, within 60 s and 20 s for each fan."},
    {Property::exitRestoresFirst, "exitRestoresFirst",
     "While the process exits no fan is asked to be forced and nobody begins to listen, and at its "
     "end every fan is automatic, unless 3 s are over or the SMC refuses."},
    {Property::exitIsInTime, "exitIsInTime",
     "No exit takes longer than the 3 s of its restoration."},
    {Property::firstExitCounts, "firstExitCounts",
     "Of several reasons to exit, the first gives the status: 143 or 130 for a signal, and neither "
     "for any other."},
    {Property::inputNeverStopsTheProcess, "inputNeverStopsTheProcess",
     "Nothing that comes from outside, no command and no number, stops the process as a bug does."},
    {Property::recoveryComesFirst, "recoveryComesFirst",
     "When the daemon begins to listen no fan is forced whose mode key could be read, and nothing "
     "was answered before."},
    {Property::onlyAllowedWrites, "onlyAllowedWrites",
     "Only mode keys (0 or 1), targets (0, or finite and within the limits that the SMC gave) and "
     "Ftst (0 or 1) are ever written."},
    {Property::forceTestComesFirst, "forceTestComesFirst",
     "A release of every fan raises Ftst before it gives the first fan back."},
    {Property::forceTestIsLowered, "forceTestIsLowered",
     "3 s after a release that nothing refused, Ftst is off."},
    {Property::stateIsTrue, "stateIsTrue",
     "A state without error, plan and fans is published only when no fan is held; none names a "
     "plan, "
     "a mode, a target or a stop 3 s after that was given back, but for stops, which a release of "
     "every fan leaves to the next control step; a target is published only when it was written, "
     "full "
     "blast for 100 % and for nothing else, and the reason of a release until something newer "
     "happens."},
    {Property::reasonsAreTrue, "reasonsAreTrue",
     "A safety release names a reason that exists: more than 15 s of silence, a temperature of "
     "95 °C or more, temperatures that cannot be read, checks that are overdue, or a fan that "
     "nobody holds; and its text is that reason's."},
    {Property::controlLasts, "controlLasts",
     "A fan that a client wants at a fixed speed is not asked to go back while that client is "
     "heard every 15 s and nothing else gives a reason."},
    {Property::appliedIsTrue, "appliedIsTrue",
     "When a command is answered as applied, every fan that it wants at a fixed speed is forced, "
     "or was since it was sent, unless another command that controls fans was under way "
     "meanwhile."},
    {Property::guardIsQuiet, "guardIsQuiet",
     "The guard gives fans back only where the SMC lies or cannot be read, the HID hub hangs, the "
     "wall clock was set back, or more than ten commands wait at once."},
}};

[[nodiscard]] constexpr const PropertyText& textOf(Property property) {
    return properties[static_cast<std::size_t>(property)];
}

/// What has to have happened in some run of many, so that these have proved anything.
inline constexpr std::array<std::string_view, 25> sometimes{
    "a fan refused ten times in a row and then went back",
    "a signal came between the releases of two fans",
    "the ceiling came while a fan refused to go back",
    "a connection ended during a claim",
    "the process was killed during recovery",
    "the process was killed while a fan was forced",
    "an exit ran into its limit of 3 s",
    "a release came in the middle of a claim",
    "the last connection ended while commands were under way",
    "the watchdog released fans",
    "the ceiling released fans",
    "missing temperatures released fans",
    "the SMC said that a fan went back when it did not",
    "an upgrade ended the process",
    "an untrusted peer connected",
    "a start failed",
    "garbage was answered with 7",
    "the firmware took a fan back",
    "two clients had commands under way at once",
    "a fan refused a hundred times in a row",
    "the HID hub hung while a fan was forced",
    "the wall clock was set back while a fan was forced",
    "a command came while the process exited",
    "a client went with more than ten commands waiting",
    "the guard gave fans back",
};

}  // namespace airflow::simulation
