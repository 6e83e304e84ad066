#include "tool_runner.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <optional>

#include "completion_code.h"
#include "rmcpp.h"
#include "session.h"
#include "trace_log.h"

namespace cli {

using rmcpp::commands::CommandError;

const char *const kRakp2KeyInvalid = "Received Key of RAKP Message 2 is invalid.\n\n";
const char *const kRakp4KeyInvalid = "Received Key of RAKP Message 4 is invalid.\n\n";

namespace {

// A hint for the BMC that never answers the presence ping.
constexpr const char *kNoPingHint = "; if the BMC never answers presence pings, try --no-ping";

std::string sentence(std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == '.')) text.pop_back();
    if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
    return text;
}

// The library's words for a result code, sharpened by what its log said.
std::string meaning(int code)
{
    if (code == RMCPP_ERR_STATUS && trace::seen(kRakp2KeyInvalid))
        return "the key exchange code in RAKP 2 did not match: wrong password (or Kg); the session was refused";
    if (code == RMCPP_ERR_HEADER && trace::seen(kRakp4KeyInvalid))
        return "the integrity check value in RAKP 4 did not match: the two sides derived different session keys "
               "(wrong Kg?)";
    if (code == RMCPP_ERR_STATUS) {
        if (const auto status = trace::last_status_code()) {
            char text[160];
            std::snprintf(text, sizeof text, "the BMC answered with RMCP+ status 0x%02X, %s", status->first,
                          sentence(status->second).c_str());
            return text;
        }
    }
    return rmcpp_strerror(code);
}

}  // namespace

Printed printed(const Fields &fields)
{
    Printed p{"", nlohmann::json::object()};
    size_t width = 0;
    for (const auto &f : fields) width = std::max(width, f.label.size());
    for (const auto &f : fields) {
        p.text += f.label + std::string(width - f.label.size(), ' ') + " : " + field_text(f.value) + "\n";
        p.json[f.key] = f.value;
    }
    return p;
}

const char *result_name(int code)
{
    static const std::map<int, const char *> names = {
        {RMCPP_ERR_INVALID, "RMCPP_ERR_INVALID"},
        {RMCPP_ERR_RESOURCE, "RMCPP_ERR_RESOURCE"},
        {RMCPP_ERR_INTERNAL, "RMCPP_ERR_INTERNAL"},
        {RMCPP_ERR_RETRY_OVER, "RMCPP_ERR_RETRY_OVER"},
        {RMCPP_ERR_SESSION, "RMCPP_ERR_SESSION"},
        {RMCPP_ERR_BUFFER, "RMCPP_ERR_BUFFER"},
        {RMCPP_ERR_TIMEOUT, "RMCPP_ERR_TIMEOUT"},
        {RMCPP_ERR_SEND, "RMCPP_ERR_SEND"},
        {RMCPP_ERR_RECEIVE, "RMCPP_ERR_RECEIVE"},
        {RMCPP_ERR_RAKP_KEY, "RMCPP_ERR_RAKP_KEY"},
        {RMCPP_ERR_SOCKET, "RMCPP_ERR_SOCKET"},
        {RMCPP_ERR_PING, "RMCPP_ERR_PING"},
        {RMCPP_ERR_NO_RMCPP, "RMCPP_ERR_NO_RMCPP"},
        {RMCPP_ERR_AUTH_ALG, "RMCPP_ERR_AUTH_ALG"},
        {RMCPP_ERR_INTEGRITY_ALG, "RMCPP_ERR_INTEGRITY_ALG"},
        {RMCPP_ERR_CONF_ALG, "RMCPP_ERR_CONF_ALG"},
        {RMCPP_ERR_ROLE, "RMCPP_ERR_ROLE"},
        {RMCPP_ERR_BIND, "RMCPP_ERR_BIND"},
        {RMCPP_ERR_RESOLVE, "RMCPP_ERR_RESOLVE"},
        {RMCPP_ERR_STATUS, "RMCPP_ERR_STATUS"},
        {RMCPP_ERR_HEADER, "RMCPP_ERR_HEADER"},
        {RMCPP_ERR_COMPLETION, "RMCPP_ERR_COMPLETION"},
        {RMCPP_ERR_DATA_LENGTH, "RMCPP_ERR_DATA_LENGTH"},
        {RMCPP_ERR_UNEXPECTED, "RMCPP_ERR_UNEXPECTED"},
        {RMCPP_ERR_TIMER, "RMCPP_ERR_TIMER"},
    };
    const auto it = names.find(code);
    return it == names.end() ? "RMCPP_ERR_UNKNOWN" : it->second;
}

Failure Failure::library(const std::string &what, int result, const std::string &hint)
{
    Failure f;
    f.what = what;
    f.result = result;
    f.hint = hint;
    if (f.hint.empty() && result == RMCPP_ERR_PING && what != "ping") f.hint = kNoPingHint;
    return f;
}

Failure Failure::from(const CommandError &e, const std::string &what, const std::string &hint)
{
    Failure f;
    f.what = what;
    if (e.step != what) f.step = e.step;
    switch (e.kind) {
    case CommandError::Kind::exchange:
        f = library(what, e.result, hint);
        if (e.step != what) f.step = e.step;
        break;
    case CommandError::Kind::completion_code:
        f.kind = Kind::completion_code;
        f.completion_code = e.completion_code;
        break;
    case CommandError::Kind::malformed:
        f.kind = Kind::malformed;
        f.detail = e.what();
        break;
    }
    return f;
}

std::string Failure::text() const
{
    const std::string subject = step.empty() ? what : what + " (" + step + ")";
    switch (kind) {
    case Kind::library:
        return subject + " failed (" + std::to_string(result) + "): " + meaning(result) + hint;
    case Kind::completion_code: {
        char text[32];
        std::snprintf(text, sizeof text, "completion code 0x%02X (", completion_code);
        return subject + " failed: " + text + rmcpp::commands::completion_code_text(completion_code) + ")";
    }
    case Kind::malformed: break;
    }
    return subject + " failed: " + detail;
}

nlohmann::json Failure::json() const
{
    switch (kind) {
    case Kind::library: return {{"code", result}, {"name", result_name(result)}, {"message", text()}};
    case Kind::completion_code:
        return {{"code", completion_code}, {"name", "completion_code"}, {"message", text()}};
    case Kind::malformed: break;
    }
    return {{"code", 0}, {"name", "malformed_response"}, {"message", text()}};
}

void ToolRunner::print(const Printed &p)
{
    if (o_.json && collected_ != nullptr) {
        collected_->result = p.json;
        return;
    }
    if (o_.json)
        std::fprintf(out_, "%s\n", p.json.dump(2).c_str());
    else
        std::fputs(p.text.c_str(), out_);
    std::fflush(out_);
}

void ToolRunner::fail(const Failure &f)
{
    std::fprintf(err_, "rmcpp: %s\n", f.text().c_str());
    if (o_.json && collected_ != nullptr) collected_->error = f.json();
    else if (o_.json) std::fprintf(out_, "%s\n", f.json().dump(2).c_str());
    std::fflush(out_);
    status_ = 1;
}

void ToolRunner::warn(const std::string &what, int code)
{
    std::fprintf(err_, "rmcpp: warning: %s failed (%d): %s\n", what.c_str(), code, rmcpp_strerror(code));
}

void ToolRunner::usage_error(const std::string &text)
{
    std::fprintf(err_, "rmcpp: %s; see rmcpp --help\n", text.c_str());
    if (o_.json) {
        const nlohmann::json error = {{"code", 2}, {"name", "usage"}, {"message", text}};
        std::fprintf(out_, "%s\n", error.dump(2).c_str());
        std::fflush(out_);
    }
    status_ = 2;
}

void ToolRunner::in_session(const std::string &what, const SessionBody &body)
{
    Session s(o_);
    const int r = s.open();
    if (r != 0) {
        fail(Failure::library("establishment", r));
        return;
    }
    std::optional<Printed> result;
    std::optional<Failure> failure;
    try {
        result = body(s);
    } catch (const CommandError &e) {
        failure = Failure::from(e, what, s.hint(e.result));
    } catch (const std::exception &e) {
        Failure f;
        f.kind = Failure::Kind::malformed;
        f.what = what;
        f.detail = e.what();
        failure = f;
    }
    // The session is closed whatever happened; after a failure the failure
    // is what counts, after success a failed close is only a warning (the
    // BMC times the session out by itself).
    const int closed = s.close();
    if (failure) {
        fail(*failure);
        return;
    }
    print(*result);
    status_ = 0;
    if (closed != 0) warn("close session", closed);
}

}  // namespace cli
