// Where a session's lines really come from: a descriptor, or a terminal with editing and history.
#pragma once

#include <histedit.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "tool/client/HelperSocket.h"
#include "tool/client/Session.h"

namespace airflow::tool {

/// What both have to wait for, besides the input itself.
struct SessionWaits {
    int input = -1;  ///< the descriptor that lines come from
    /// Readable when the user wants to end it all.
    int interruption = -1;
    const HelperSocket& helper;
    client::Time& time;

    enum class Woken : std::uint8_t { byInput, byInterruption, byTime };
    /// Calls `attend` as SessionInput says, until there is input, if `forInput`, or an interruption
    /// or `until`.
    [[nodiscard]] Woken wait(bool forInput, concurrency::Instant until, const Attend& attend) const;
};

/// Lines as they are; with a prompt for each on standard output, unless it is empty.
class PlainLines final : public SessionInput {
public:
    explicit PlainLines(SessionWaits given, std::string shown = {})
        : waits(given), prompt(std::move(shown)) {}

    std::optional<std::string> nextLine(const Attend& attend) override;
    void pause(concurrency::Instant until, const Attend& attend) override;
    bool isInterrupted() const override { return interrupted; }

private:
    std::optional<std::string> takeLine();

    const SessionWaits waits;
    const std::string prompt;
    std::string read;  ///< and not yet given out
    bool isAtEnd = false;
    bool interrupted = false;
};

/// Lines that are typed at a prompt, with the keys that people are used to.
class EditedLines final : public SessionInput {
public:
    explicit EditedLines(SessionWaits given);

    std::optional<std::string> nextLine(const Attend& attend) override;
    void pause(concurrency::Instant until, const Attend& attend) override;
    bool isInterrupted() const override { return interrupted; }

private:
    static int readCharacter(EditLine* editor, wchar_t* character);
    int nextCharacter(wchar_t& character);

    const SessionWaits waits;
    const std::unique_ptr<History, decltype(&history_end)> past;
    const std::unique_ptr<EditLine, decltype(&el_end)> editor;
    const Attend* attending = nullptr;  ///< while a line is edited
    bool interrupted = false;
};

}  // namespace airflow::tool
