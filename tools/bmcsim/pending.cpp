// Requests the simulator does not answer yet: logged and left unanswered.
#include "engine.h"

namespace bmcsim::detail {

void Engine::session_packet(const Bytes &, const Config &, Outcome &) { log("not answered: session packet"); }

}  // namespace bmcsim::detail
