#pragma once
#include <QString>
#include <chrono>

#include "agent/AgentServer.h"

namespace velmora::agent {

// Asks the user on the desktop whether a page from `origin` may use the agent: "Allow
// once", "Always" or "Deny", with Deny the default and the answer to Escape. Nobody
// answering within `timeout` counts as no answer (the page is refused, and asked about
// again when it comes back).
OriginAnswer askTheUserAbout(const QString& origin, std::chrono::milliseconds timeout = std::chrono::minutes(2));

}  // namespace velmora::agent
