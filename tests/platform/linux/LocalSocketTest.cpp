#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/linux/LocalSocket.h"

namespace airflow::platform {
namespace {

using namespace std::chrono_literals;

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;

/// A folder of the test's own.
class LocalSocketTest : public testing::Test {
protected:
    LocalSocketTest() {
        std::string pattern = fs::temp_directory_path() / "airflow-sockets-XXXXXX";
        folder = mkdtemp(pattern.data());
    }
    ~LocalSocketTest() override {
        fs::permissions(folder, fs::perms::owner_all);
        fs::remove_all(folder);
    }

    [[nodiscard]] std::string path(const std::string& name) const { return folder / name; }

    fs::path folder;
};

mode_t modeOf(const std::string& path) {
    struct stat status{};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 0777U;
}

TEST_F(LocalSocketTest, aSocketIsForItsUserAlone) {
    const auto listening = listenOn(path("s"));
    ASSERT_TRUE(listening) << listening.error();
    EXPECT_EQ(modeOf(path("s")), 0600u);
}

TEST_F(LocalSocketTest, bytesGoBothWays) {
    const auto listening = listenOn(path("s"));
    const auto client = connectTo(path("s"));
    ASSERT_TRUE(client) << client.error();
    const FileDescriptor server = acceptFrom(*listening);
    ASSERT_TRUE(server);
    EXPECT_TRUE(sendAll(*client, "ping"));
    std::array<std::byte, 4> bytes{};
    EXPECT_TRUE(receiveExactly(server, bytes));
    EXPECT_EQ(bytes[3], std::byte{'g'});
}

TEST_F(LocalSocketTest, aSocketThatAKilledProcessLeftIsReplaced) {
    {
        const auto listening = listenOn(path("s"));
    }
    ASSERT_TRUE(fs::exists(path("s")));
    EXPECT_TRUE(listenOn(path("s")));
    const auto connected = connectTo(path("s"));
    EXPECT_FALSE(connected);  // the new one was closed at once, too
}

TEST_F(LocalSocketTest, aSocketThatSomebodyListensOnIsNot) {
    const auto first = listenOn(path("s"));
    const auto second = listenOn(path("s"));
    ASSERT_FALSE(second);
    EXPECT_THAT(second.error(), EndsWith("/s: another process listens there"));
    EXPECT_TRUE(connectTo(path("s")));
}

TEST_F(LocalSocketTest, whoeverListensIsNotDisturbedByWhoWouldLikeTo) {
    const auto first = listenOn(path("s"));
    ASSERT_FALSE(listenOn(path("s")));
    makeNonBlocking(*first);
    EXPECT_FALSE(acceptFrom(*first));  // nobody has knocked
}

/// Somebody who knows nothing of our locks.
TEST_F(LocalSocketTest, aSocketThatAForeignProcessListensOnIsLeftAlone) {
    const auto foreign = listenOn(path("s"));
    fs::remove(path("s.lock"));
    const auto own = listenOn(path("s"));
    ASSERT_FALSE(own);
    EXPECT_THAT(own.error(), EndsWith("/s: another process listens there"));
    EXPECT_TRUE(acceptFrom(*foreign));
    EXPECT_TRUE(connectTo(path("s")));
}

TEST_F(LocalSocketTest, aSocketOfAnotherKindThatIsInUseIsLeftAlone) {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path("s").copy(address.sun_path, sizeof address.sun_path - 1);
    const FileDescriptor foreign(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto* const name = reinterpret_cast<const sockaddr*>(&address);
    ASSERT_EQ(bind(foreign.get(), name, sizeof address), 0);
    const auto own = listenOn(path("s"));
    ASSERT_FALSE(own);
    EXPECT_THAT(own.error(), EndsWith("/s: another process listens there"));
    EXPECT_TRUE(fs::exists(path("s")));
}

TEST_F(LocalSocketTest, aServerIsClaimedByOneProcessAtATime) {
    const auto server = listenOn(path("s"));
    auto first = claimServer(path("s"), 0ms);
    ASSERT_TRUE(first && *first);
    const auto second = claimServer(path("s"), 0ms);
    ASSERT_FALSE(second);
    EXPECT_THAT(second.error(), EndsWith("/s: another process uses it"));
    first = FileDescriptor();
    EXPECT_TRUE(claimServer(path("s"), 0ms));
}

TEST_F(LocalSocketTest, aServerIsTheSameByWhateverPath) {
    const auto server = listenOn(path("s"));
    fs::create_symlink(path("s"), path("link"));
    const auto first = claimServer(path("s"), 0ms);
    EXPECT_FALSE(claimServer(path("link"), 0ms));
}

TEST_F(LocalSocketTest, aServerThatIsNotThereNeedsNoClaim) {
    const auto claim = claimServer(path("s"), 0ms);
    ASSERT_TRUE(claim);
    EXPECT_FALSE(*claim);
}

TEST_F(LocalSocketTest, aFileIsNeverReplaced) {
    std::ofstream(path("s")) << "precious";
    const auto listening = listenOn(path("s"));
    ASSERT_FALSE(listening);
    EXPECT_THAT(listening.error(), EndsWith("/s: exists and is not a socket"));
    EXPECT_EQ(fs::file_size(path("s")), 8u);
}

TEST_F(LocalSocketTest, whereNobodyListensIsSaid) {
    const auto connected = connectTo(path("s"));
    ASSERT_FALSE(connected);
    EXPECT_THAT(connected.error(), EndsWith("/s: nobody listens there"));
}

TEST_F(LocalSocketTest, aFolderThatDoesNotExistIsSaid) {
    const auto listening = listenOn(path("no/s"));
    ASSERT_FALSE(listening);
    EXPECT_THAT(listening.error(),
                EndsWith("/no/s: no socket can be made there: No such file or directory"));
}

TEST_F(LocalSocketTest, aNameHasToFit) {
    EXPECT_TRUE(listenOn("/tmp/" + std::string(102, 'x')));
    fs::remove("/tmp/" + std::string(102, 'x'));
    const auto listening = listenOn("/tmp/" + std::string(103, 'x'));
    ASSERT_FALSE(listening);
    EXPECT_THAT(listening.error(), HasSubstr("is too long for the name of a socket (107 bytes"));
    EXPECT_FALSE(listenOn(""));
}

TEST_F(LocalSocketTest, thePeerIsKnown) {
    const auto listening = listenOn(path("s"));
    const auto client = connectTo(path("s"));
    const FileDescriptor server = acceptFrom(*listening);
    const auto peer = peerOf(server);
    ASSERT_TRUE(peer);
    EXPECT_EQ(peer->user, geteuid());
    EXPECT_EQ(peer->process, getpid());
}

TEST_F(LocalSocketTest, sendingToWhoIsGoneFailsWithoutASignal) {
    const auto listening = listenOn(path("s"));
    const auto client = connectTo(path("s"));
    {
        const FileDescriptor server = acceptFrom(*listening);
    }
    EXPECT_FALSE(sendAll(*client, std::string(1 << 20, 'x')));
    std::array<std::byte, 1> bytes{};
    EXPECT_FALSE(receiveExactly(*client, bytes));
}

TEST_F(LocalSocketTest, aNonBlockingListenerSaysThatNobodyWaits) {
    const auto listening = listenOn(path("s"));
    makeNonBlocking(*listening);
    EXPECT_FALSE(acceptFrom(*listening));
    EXPECT_EQ(errno, EAGAIN);
}

/// With $XDG_RUNTIME_DIR set to the test's folder.
class RuntimeFolderTest : public LocalSocketTest {
protected:
    RuntimeFolderTest() { setenv("XDG_RUNTIME_DIR", folder.c_str(), 1); }
    ~RuntimeFolderTest() override { unsetenv("XDG_RUNTIME_DIR"); }
};

TEST_F(RuntimeFolderTest, isMadeForTheUserAlone) {
    const auto made = runtimeFolder();
    ASSERT_TRUE(made) << made.error();
    EXPECT_EQ(*made, path("airflow"));
    EXPECT_EQ(modeOf(*made), 0700u);
    EXPECT_EQ(runtimeFolder(), made);
}

TEST_F(RuntimeFolderTest, isRefusedWhenItLetsOthersIn) {
    fs::create_directory(path("airflow"));
    fs::permissions(path("airflow"), fs::perms{0750});
    const auto refused = runtimeFolder();
    ASSERT_FALSE(refused);
    EXPECT_THAT(refused.error(), EndsWith("/airflow: lets other users in (mode 0700 wanted)"));
}

TEST_F(RuntimeFolderTest, isNoLinkToElsewhere) {
    fs::create_directory(path("elsewhere"));
    fs::create_symlink(path("elsewhere"), path("airflow"));
    const auto refused = runtimeFolder();
    ASSERT_FALSE(refused);
    EXPECT_THAT(refused.error(), EndsWith("/airflow: is not a folder"));
}

TEST_F(RuntimeFolderTest, hasAnotherPlaceWhereTheUserHasNone) {
    unsetenv("XDG_RUNTIME_DIR");
    const auto made = runtimeFolder();
    ASSERT_TRUE(made) << made.error();
    EXPECT_EQ(*made, "/tmp/airflow-" + std::to_string(geteuid()));
}

}  // namespace
}  // namespace airflow::platform
