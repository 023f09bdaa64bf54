// The host's figures for a monitor.
#pragma once

#include <string>

#include "host/site/services.h"

namespace host {

// Prometheus text format 0.0.4. Labels are names of cameras and words of fixed lists, so what it holds grows
// with the cameras alone. Any thread; takes the locks of the feeds, none of the component's.
std::string MetricsText(const Services& services);

} // namespace host
