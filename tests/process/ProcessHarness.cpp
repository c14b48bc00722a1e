#include "ProcessHarness.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <thread>
#include <utility>

#include "json/Decoder.h"

namespace airflow::process {

RawClient::RawClient(const std::string& path) {
    auto connected = platform::connectTo(path);
    EXPECT_TRUE(connected) << connected.error();
    if (connected) connection = std::move(*connected);
}

bool RawClient::trySend(const std::string& message) {
    return platform::sendAll(connection, message + "\n");
}

void RawClient::send(const std::string& message) {
    EXPECT_TRUE(trySend(message));
}

std::optional<std::string> RawClient::receive() {
    for (;;) {
        if (const auto end = received.find('\n'); end != std::string::npos) {
            std::string line = received.substr(0, end);
            received.erase(0, end + 1);
            return line;
        }
        pollfd asked{.fd = connection.get(), .events = POLLIN, .revents = 0};
        std::array<char, 4096> chunk{};
        if (poll(&asked, 1, 10'000) <= 0) return std::nullopt;
        const ssize_t count = recv(connection.get(), chunk.data(), chunk.size(), 0);
        if (count <= 0) return std::nullopt;
        received.append(chunk.data(), static_cast<std::size_t>(count));
    }
}

std::string RawClient::ask(const std::string& message) {
    send(message);
    return receive().value_or("no answer");
}

void ProcessHarness::startMachine(const std::string& preset) {
    machine = std::make_unique<Child>(std::vector<std::string>{
        "machine", "--machine", preset, "--machine-socket", machineSocket()});
    ASSERT_TRUE(machine->out.readLine());
}

void ProcessHarness::spawnHelper(const std::vector<std::string>& options, StandardError error) {
    std::vector<std::string> words{"helper", "--machine-socket", machineSocket(), "--helper-socket",
                                   helperSocket()};
    words.insert(words.end(), options.begin(), options.end());
    helper = std::make_unique<Child>(std::move(words), error);
}

void ProcessHarness::startHelper(const std::vector<std::string>& options) {
    spawnHelper(options);
    ASSERT_EQ(helper->err.readLine(), listening);
}

tool::ToolRun ProcessHarness::askMachine(std::vector<std::string> words) const {
    words.insert(words.begin(), "machine");
    words.insert(words.end(), {"--machine-socket", machineSocket()});
    auto run = tool::runTool(std::move(words));
    EXPECT_EQ(run.status, 0) << run.err;
    return run;
}

remote::MachineStatus ProcessHarness::status() const {
    const auto run = askMachine({"status", "--format", "json"});
    const auto decoded =
        json::decode<remote::MachineStatus>(run.out.substr(0, run.out.find_last_not_of('\n') + 1));
    EXPECT_TRUE(decoded) << run.out;
    return decoded.value_or(remote::MachineStatus{});
}

std::vector<std::int64_t> ProcessHarness::modes() const {
    std::vector<std::int64_t> modes;
    for (const auto& fan : status().fans) modes.push_back(fan.mode);
    return modes;
}

std::int64_t ProcessHarness::writesOf(const std::string& key) const {
    const auto writes = status().writes;
    const auto found = writes.find(key);
    return found == writes.end() ? 0 : found->second;
}

void ProcessHarness::inject(const std::string& fault) const {
    (void)askMachine({"fault", fault});
}

void ProcessHarness::clearFaults() const {
    (void)askMachine({"clear"});
}

bool ProcessHarness::eventually(const std::function<bool()>& claim) {
    const auto limit = std::chrono::steady_clock::now() + 5s;
    while (!claim()) {
        if (std::chrono::steady_clock::now() > limit) return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

}  // namespace airflow::process
