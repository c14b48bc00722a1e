#include "tool/client/SessionInputs.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cwchar>

#include "platform/linux/Waiting.h"

namespace airflow::tool {

namespace {

using concurrency::Instant;

/// As many bytes as are there; nothing at the end.
std::string readSome(int descriptor, std::size_t most) {
    std::string bytes(most, '\0');
    ssize_t count = 0;
    do {
        count = read(descriptor, bytes.data(), bytes.size());
    } while (count < 0 && errno == EINTR);
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
}

}  // namespace

SessionWaits::Woken SessionWaits::wait(bool forInput, Instant until, const Attend& attend) const {
    for (;;) {
        const Instant due = attend();
        const auto woken =
            platform::waitForAny({interruption, forInput ? input : -1, helper.descriptor()},
                                 std::min(due, until), [this] { return time.now(); });
        if (woken == 0) return Woken::byInterruption;
        if (woken == 1) return Woken::byInput;
        if (time.now() >= until) return Woken::byTime;
    }
}

std::optional<std::string> PlainLines::nextLine(const Attend& attend) {
    const auto show = [](const std::string& text) {
        std::fputs(text.c_str(), stdout);
        std::fflush(stdout);
    };
    show(prompt);
    for (;;) {
        if (auto line = takeLine()) return line;
        if (!isAtEnd) {
            interrupted =
                waits.wait(true, Instant::max(), attend) == SessionWaits::Woken::byInterruption;
        }
        if (isAtEnd || interrupted) {
            if (!prompt.empty()) show("\n");
            return std::nullopt;
        }
        const std::string more = readSome(waits.input, 64UL * 1024);
        isAtEnd = more.empty();
        read += more;
    }
}

void PlainLines::pause(Instant until, const Attend& attend) {
    interrupted = waits.wait(false, until, attend) == SessionWaits::Woken::byInterruption;
}

std::optional<std::string> PlainLines::takeLine() {
    const auto end = read.find('\n');
    if (end == std::string::npos && (!isAtEnd || read.empty())) return std::nullopt;
    std::string line = read.substr(0, end);  // the last one may lack its newline
    read.erase(0, end == std::string::npos ? end : end + 1);
    return line;
}

EditedLines::EditedLines(SessionWaits given)
    : waits(given),
      past(history_init(), history_end),
      editor(el_init("airflow", stdin, stdout, stderr), el_end) {
    std::setlocale(LC_CTYPE, "");  // for characters beyond ASCII
    HistEvent event{};
    history(past.get(), &event, H_SETSIZE, 500);
    EditLine* const own = editor.get();
    el_set(
        own, EL_PROMPT, +[](EditLine*) {
            static char prompt[] = "airflow> ";
            return prompt;
        });
    el_set(own, EL_EDITOR, "emacs");
    el_set(own, EL_SIGNAL, 1);
    el_set(own, EL_HIST, history, past.get());
    el_set(own, EL_CLIENTDATA, this);
    el_set(own, EL_GETCFN, readCharacter);
}

std::optional<std::string> EditedLines::nextLine(const Attend& attend) {
    attending = &attend;
    int count = 0;
    const char* const typed = el_gets(editor.get(), &count);
    attending = nullptr;
    if (interrupted || !typed || count <= 0) {
        std::fputs("\n", stdout);
        std::fflush(stdout);
        return std::nullopt;
    }
    std::string line(typed, static_cast<std::size_t>(count));
    if (line.ends_with('\n')) line.pop_back();
    HistEvent event{};
    if (!line.empty()) history(past.get(), &event, H_ENTER, line.c_str());
    return line;
}

void EditedLines::pause(Instant until, const Attend& attend) {
    interrupted = waits.wait(false, until, attend) == SessionWaits::Woken::byInterruption;
}

int EditedLines::readCharacter(EditLine* editor, wchar_t* character) {
    void* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return static_cast<EditedLines*>(self)->nextCharacter(*character);
}

/// 1 with a character; 0 when there will be none.
int EditedLines::nextCharacter(wchar_t& character) {
    std::mbstate_t state{};
    for (;;) {
        interrupted =
            waits.wait(true, Instant::max(), *attending) == SessionWaits::Woken::byInterruption;
        if (interrupted) return 0;
        const std::string byte = readSome(waits.input, 1);
        if (byte.empty()) return 0;
        constexpr auto incomplete = static_cast<std::size_t>(-2);
        constexpr auto wrong = static_cast<std::size_t>(-1);
        const std::size_t length = std::mbrtowc(&character, byte.data(), 1, &state);
        if (length == wrong) state = {};
        if (length != incomplete && length != wrong) return 1;
    }
}

}  // namespace airflow::tool
