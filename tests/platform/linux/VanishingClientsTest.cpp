// Many clients that connect, command and vanish as it comes. Runs for a second;
// AIRFLOW_STRESS_SECONDS lets it run for longer, AIRFLOW_STRESS_SEED otherwise.
#include <gmock/gmock.h>

#include <array>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ServedDaemon.h"

namespace airflow::platform {
namespace {

int setting(const char* name, int usual) {
    const char* const text = std::getenv(name);
    return text ? std::stoi(text) : usual;
}

/// What a client says; one in ten is nonsense.
const std::vector<std::string>& messages() {
    static const std::vector<std::string> all{
        "{\"id\":1,\"method\":\"fullBlast\"}\n",
        "{\"id\":2,\"method\":\"setPercent\",\"fan\":0,\"percent\":40}\n",
        "{\"id\":3,\"method\":\"setManualRPM\",\"fan\":1,\"rpm\":2500}\n",
        "{\"id\":4,\"method\":\"automatic\"}\n",
        "{\"id\":5,\"method\":\"restoreAuto\"}\n",
        "{\"id\":6,\"method\":\"readState\"}\n",
        "{\"id\":7,\"method\":\"helperVersion\"}\n",
        "{\"method\":\"heartbeat\"}\n",
        "{\"id\":8,\"method\":\"applyConfig\",\"plan\":\"{}\"}\n",
        "{\"id\":9,\"method\":",  // goes on with whatever comes next
    };
    return all;
}

/// Eight clients, of which one does something at a time.
class Crowd {
public:
    Crowd(std::string socket, unsigned seed) : path(std::move(socket)), random(seed) {}

    void actUntil(std::chrono::steady_clock::time_point end) {
        while (std::chrono::steady_clock::now() < end) act();
        clients = {};
    }
    [[nodiscard]] int connections() const { return made; }

private:
    void act() {
        std::optional<LineClient>& client = clients[random() % clients.size()];
        if (!client) {
            client.emplace(path);
            makeNonBlocking(client->socket);
            ++made;
            return;
        }
        switch (random() % 8) {
            case 0: client.reset(); break;
            case 1: client->finishSending(); break;
            case 2: {
                std::array<char, 512> chunk{};
                (void)!recv(client->socket.get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
                break;
            }
            default: (void)client->send(messages()[random() % messages().size()]); break;
        }
        std::this_thread::sleep_for(1ms);  // or the daemon would only be working off a backlog
    }

    std::string path;
    std::minstd_rand random;
    std::array<std::optional<LineClient>, 8> clients;
    int made = 0;
};

TEST(VanishingClients, leaveTheMachineInAutoAndNothingBehind) {
    ServedDaemon served(isOwnUserOrRoot, {});  // thousands of commands, none of which waits
    served.start();
    LineClient(served.path).ask(R"({"id":1,"method":"fullBlast"})");
    ASSERT_TRUE(eventually([&served] { return served.mac.isAllAutomatic(); }));
    const std::size_t descriptors = openDescriptors();

    const auto seed = static_cast<unsigned>(setting("AIRFLOW_STRESS_SEED", 1));
    const auto end = std::chrono::steady_clock::now() +
                     std::chrono::seconds(setting("AIRFLOW_STRESS_SECONDS", 1));
    std::vector<Crowd> crowds;
    for (unsigned i = 0; i < 8; ++i) crowds.emplace_back(served.path, seed * 8 + i);
    std::vector<std::thread> threads;
    for (Crowd& crowd : crowds) threads.emplace_back([&crowd, end] { crowd.actUntil(end); });
    for (std::thread& thread : threads) thread.join();

    int connections = 0;
    for (const Crowd& crowd : crowds) connections += crowd.connections();
    RecordProperty("connections", connections);
    EXPECT_GT(connections, 64);
    EXPECT_TRUE(eventually([&] { return openDescriptors() <= descriptors; }));
    LineClient last(served.path);
    EXPECT_TRUE(eventually([&] {
        return last.ask(R"({"id":1,"method":"readState"})").contains(R"("isHolding":false)") &&
               served.mac.isAllAutomatic();
    }));
}

}  // namespace
}  // namespace airflow::platform
