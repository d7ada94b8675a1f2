#pragma once

#include <string>

/// Tells the service manager that started the process how it fares, as
/// "READY=1" or "STOPPING=1" (sd_notify(3)). Does nothing when no manager
/// asked for it, and nothing but send one datagram when one did.
void NotifyServiceManager(const std::string& state);
