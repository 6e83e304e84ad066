// A Transport for the procedures' tests: answers requests from a script and
// records what was asked.
#pragma once

#include <deque>
#include <functional>

#include "transport.h"

namespace rmcpp::commands::testkit {

struct Request {
    uint8_t netfn = 0;
    uint8_t cmd = 0;
    Bytes data;
    uint8_t lun = 0;
    bool operator==(const Request &) const = default;
};

// Answers with `answer` when given, else from the queued replies in order;
// an exchange with nothing queued fails with result -1.
class ScriptedTransport : public Transport {
public:
    std::function<Reply(const Request &)> answer;
    std::deque<Reply> replies;
    std::vector<Request> asked;

    void queue(uint8_t completion_code, Bytes data = {}) { replies.push_back({0, completion_code, std::move(data)}); }

    Reply exchange(uint8_t netfn, uint8_t cmd, const Bytes &data) override
    {
        return exchange_lun(0, netfn, cmd, data);
    }

    Reply exchange_lun(uint8_t lun, uint8_t netfn, uint8_t cmd, const Bytes &data) override
    {
        asked.push_back({netfn, cmd, data, lun});
        if (answer) return answer(asked.back());
        if (replies.empty()) return {-1, 0, {}};
        Reply r = std::move(replies.front());
        replies.pop_front();
        return r;
    }
};

}  // namespace rmcpp::commands::testkit
