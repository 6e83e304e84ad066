#include <memory>

#include "options.h"
#include "runner.h"

namespace cli {

void add_channel_subcommand(CLI::App &parent, const std::string &name, const std::string &description,
                            const std::string &channel_help, uint8_t default_channel, Runner &runner,
                            const std::string &what,
                            std::function<Printed(rmcpp::commands::Transport &, uint8_t)> body)
{
    auto channel_text = std::make_shared<std::string>();
    CLI::App *sub = parent.add_subcommand(name, description);
    sub->add_option("channel", *channel_text, channel_help);
    sub->callback([channel_text, default_channel, &runner, what, body = std::move(body)] {
        uint8_t channel = default_channel;
        if (!channel_text->empty()) {
            const auto c = parse_byte(*channel_text);
            if (!c || *c > 0x0F) {
                runner.usage_error("channel must be 0..15: " + *channel_text);
                return;
            }
            channel = *c;
        }
        runner.in_session(what, [&body, channel](rmcpp::commands::Transport &t) { return body(t, channel); });
    });
}

}  // namespace cli
