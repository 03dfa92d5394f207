#pragma once

#include <cstddef>

#include <kestrin-profile-server/Namespace.hpp>
#include <kestrin-profile-server/http/Responder.hpp>

namespace KestrinProfileServer {

/// Answers a request of the protocol as its namespace's faults want it: calls `done` once.
///
/// What is answered as a success was done and is on the disk, whatever the fault.
void dispatchWithFaults(Request request, Namespace& space, std::size_t thread,
                        Responder::Done done);

}  // namespace KestrinProfileServer
