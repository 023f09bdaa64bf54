// A request in Boost.Beast's own form, for code that hands it back to that library.
#pragma once

#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>

namespace host {

struct BeastRequest {
    boost::beast::http::request<boost::beast::http::empty_body> message;
};

} // namespace host
