// local_agent.h - the agent's code in this process, to time single calls. No link, no subscription.
#pragma once

#include "router.h"

namespace bench {

// The agent's state after its start on that router: session, log, identity and endpoints. One at a time.
class LocalAgent {
 public:
    explicit LocalAgent(const Router& router);
    LocalAgent(const LocalAgent&) = delete;
    LocalAgent& operator=(const LocalAgent&) = delete;
    ~LocalAgent();
};

}  // namespace bench
