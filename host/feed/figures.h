// The figures of cameras as text for programs.
#pragma once

#include <string>

#include "host/feed/feed_table.h"

namespace host {

// A number with so many digits behind the point.
std::string FixedNumber(double value, int digits);

// A JSON array with an object for each camera; `withId` puts the numbers in that the live page's stream uses.
std::string CamerasJson(const FeedTable& feeds, bool withId);

} // namespace host
