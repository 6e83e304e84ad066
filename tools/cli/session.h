// A session with the BMC the tool's options name: the suite chosen (asking
// the BMC when -C is not given), set up with the tool's robust defaults, and
// closed when the object goes. It is the Transport the everyday commands
// run over.
#pragma once

#include <string>

#include "options.h"
#include "rmcpp.h"
#include "transport.h"

namespace cli {

// The options of every session and sessionless request: the tool's robust
// defaults (kernel random source, strict peer, kernel-chosen local port)
// unless a flag turns one back to the library's.
RMCPP_SessionOptions session_options(const Options &o);

void fill_param(const Options &o, int suite, IPMI_SessionParam &p);

// Failures of the suite query that no session could get past either.
bool unreachable(int code);

// Without -C: the strongest suite the channel offers, 17 before 3, and 3
// when the BMC does not answer Get Channel Cipher Suites or offers neither.
// Returns 0, or the result code of a failure that ends the run.
int choose_suite(const Options &o, int &suite);

class Session : public rmcpp::commands::Transport {
public:
    explicit Session(const Options &o) : o_(o) {}
    ~Session() override;
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    int open();

    // One request/response exchange; fills the completion code and data.
    int exchange(uint8_t netfn, uint8_t cmd, const rmcpp::commands::Bytes &data, uint8_t &cc,
                 rmcpp::commands::Bytes &response);
    // The same for the everyday commands. An IPMI v2.0 session starts at
    // User level whatever the console asked for: a request refused with
    // "insufficient privilege level" (D4h) is sent once more after Set
    // Session Privilege Level has raised the session to the level the
    // options name (for 0, the highest the BMC granted). Requests User
    // level allows cost no extra exchange.
    rmcpp::commands::Reply exchange(uint8_t netfn, uint8_t cmd, const rmcpp::commands::Bytes &data) override;
    // To LUN `lun` of the target instead of the LUN the options name.
    rmcpp::commands::Reply exchange_lun(uint8_t lun, uint8_t netfn, uint8_t cmd,
                                        const rmcpp::commands::Bytes &data) override;

    // Closes the session if it is open; 0 when it was not.
    int close();

    // What to add to a failure of this session's messages: a suite 2 or 3
    // session in the library's key mode whose first message went
    // unanswered most likely talks to a BMC that keys with K1.
    std::string hint(int code) const;

    bool is_open() const { return open_; }
    const IPMI_SessionParam &param() const { return p_; }
    int suite() const { return suite_; }

private:
    int exchange_to(uint8_t lun, uint8_t netfn, uint8_t cmd, const rmcpp::commands::Bytes &data, uint8_t &cc,
                    rmcpp::commands::Bytes &response);

    const Options &o_;
    IPMI_SessionParam p_{};
    bool open_ = false;
    bool answered_ = false;
    int suite_ = 3;
    unsigned seq_ = 1;
    bool raised_ = false;

    // Set Session Privilege Level; true when the BMC granted it.
    bool raise_privilege();
};

// A hint for the first message of a suite 2 or 3 session in the library's
// key mode that gets no answer: the BMC checks the integrity code with K1.
extern const char *const kStandardKeysHint;

}  // namespace cli
