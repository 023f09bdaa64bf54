// What documents and nodes share. Private to this folder.
#pragma once

#include <exception>
#include <new>

#include "platform/configdoc/tree.h"

namespace platform {

// Runs an operation's body, so that no exception crosses the interface.
template <class Body>
HRESULT Guard(Body body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (const std::exception&) {
        return E_UNEXPECTED; // the XML library's own complaint
    }
}

// The same for one that gives an object or a text, which is null until the body fills the place.
template <class Result, class Body>
HRESULT Give(Result** place, Body body) noexcept {
    if (place == nullptr)
        return E_POINTER;
    *place = nullptr;
    return Guard(body);
}

// Puts an element, with a reference, into the place.
HRESULT GiveElement(Tree& tree, pugi::xml_node element, IConfigElement** place);

} // namespace platform
