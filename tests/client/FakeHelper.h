// FakeHelper: a daemon at the other end of the client's seams, in virtual time. It answers as the
// real one does, and can be told to be late, wrong or gone.
#pragma once

#include <algorithm>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/Transport.h"

namespace airflow::client {

using namespace std::chrono_literals;

class FakeHelper : public Transport, public Time {
public:
    /// What it says to one line: bytes after a while. Bytes that are `hangUp` end the connection.
    struct Reply {
        std::string bytes;
        concurrency::Duration after = 0s;
    };
    using Replies = std::vector<Reply>;
    static constexpr std::string_view hangUp = "\x04";

    /// Lines that arrived, without their newlines, of all connections.
    std::vector<std::string> lines;
    /// When each line arrived.
    std::vector<concurrency::Duration> times;
    std::string version = "1.0.3+6";
    /// Connections that are refused, before one succeeds.
    int refusals = 0;
    int connections = 0;
    int openConnections = 0;
    /// By the method's name; a method without one is answered with code 0.
    std::function<Replies(const std::string& method, const std::string& id)> answers =
        [](const std::string&, const std::string&) { return Replies{}; };
    bool isDeaf = false;  ///< what is sent does not leave

    concurrency::Instant now() override { return clock; }
    void sleepUntil(concurrency::Instant until) override { clock = std::max(clock, until); }
    void advance(concurrency::Duration duration) { clock += duration; }

    std::expected<std::unique_ptr<Channel>, std::string> connect() override {
        if (refusals > 0) {
            --refusals;
            return std::unexpected("/run/helper.sock: nobody listens there");
        }
        ++connections;
        inFlight.clear();
        return std::make_unique<Wire>(*this);
    }
    /// Lets something arrive that no line asked for.
    void say(std::string bytes, concurrency::Duration after = 0s) {
        const auto at = clock + after;
        const auto later = std::ranges::find_if(
            inFlight, [at](const Arrival& arrival) { return arrival.at > at; });
        inFlight.insert(later, {at, std::move(bytes)});
    }
    std::vector<std::string> methods() const {
        std::vector<std::string> result;
        for (const std::string& line : lines) result.push_back(member(line, "\"method\":\""));
        return result;
    }
    std::size_t countOf(std::string_view method) const {
        return static_cast<std::size_t>(std::ranges::count(methods(), method));
    }

private:
    struct Arrival {
        concurrency::Instant at;
        std::string bytes;
    };

    class Wire : public Channel {
    public:
        explicit Wire(FakeHelper& helper) : helper(helper) { ++helper.openConnections; }
        ~Wire() override { --helper.openConnections; }
        bool send(std::string_view bytes) override { return helper.hear(bytes); }
        Received receive(concurrency::Instant until) override { return helper.next(until); }

    private:
        FakeHelper& helper;
    };

    static std::string member(const std::string& line, std::string_view before) {
        const auto start = line.find(before) + before.size();
        return line.substr(start, line.find_first_of(",\"}", start) - start);
    }

    bool hear(std::string_view bytes) {
        if (isDeaf) return false;
        std::string line(bytes.substr(0, bytes.size() - 1));
        const std::string id = member(line, "\"id\":");
        const std::string method = member(line, "\"method\":\"");
        lines.push_back(std::move(line));
        times.push_back(clock.time_since_epoch());
        Replies replies = answers(method, id);
        if (replies.empty()) replies = usual(method, id);
        for (Reply& reply : replies) say(std::move(reply.bytes), reply.after);
        return true;
    }

    Replies usual(const std::string& method, const std::string& id) const {
        if (method == "heartbeat") return {};
        if (method == "helperVersion") {
            return {{"{\"id\":" + id + ",\"version\":\"" + version + "\"}\n"}};
        }
        if (method == "shutdownForUpgrade") {
            return {{"{\"id\":" + id + "}\n"}, {std::string(hangUp), 200ms}};
        }
        if (method == "restoreAuto") return {{"{\"id\":" + id + "}\n"}};
        if (method == "readState") {
            return {{"{\"id\":" + id +
                     ",\"state\":{\"perFanMode\":{},\"targets\":{},\"isHolding\":false}}\n"}};
        }
        return {{"{\"id\":" + id + ",\"code\":0}\n"}};
    }

    Received next(concurrency::Instant until) {
        if (inFlight.empty() || inFlight.front().at > std::max(until, clock)) {
            clock = std::max(clock, until);
            return {};
        }
        clock = std::max(clock, inFlight.front().at);
        std::string bytes = std::move(inFlight.front().bytes);
        if (bytes == hangUp) return {.kind = Received::Kind::ended, .bytes = {}};
        inFlight.pop_front();
        return {.kind = Received::Kind::bytes, .bytes = std::move(bytes)};
    }

    concurrency::Instant clock;
    std::deque<Arrival> inFlight;  ///< in the order of arrival
};

}  // namespace airflow::client
