// Requests the simulator does not answer yet: logged and left unanswered.
#include "engine.h"

namespace bmcsim::detail {

void Engine::channel_capabilities(const Bytes &, const Config &, Outcome &) { log("not answered: channel capabilities"); }
void Engine::open_session(const Bytes &, const Config &, Outcome &) { log("not answered: open session"); }
void Engine::rakp1(const Bytes &, const Config &, Outcome &) { log("not answered: RAKP 1"); }
void Engine::rakp3(const Bytes &, const Config &, Outcome &) { log("not answered: RAKP 3"); }
void Engine::session_packet(const Bytes &, const Config &, Outcome &) { log("not answered: session packet"); }

}  // namespace bmcsim::detail
