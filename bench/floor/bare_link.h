// bare_link.h - the connector's link without the link's library: a listening port, and a message from it. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace bench {

// A socket that listens on 127.0.0.1:`port` with room for `waiting` connections, for the life of the process. Ends the
// process when there is none.
int listen_on(std::uint16_t port, int waiting = 1);

// All that the sender wrote before it closed. Closes the connection.
std::string take_message(int connection);

}  // namespace bench
