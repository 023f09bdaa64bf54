// The log engine that the component finds under its library's name: it prints to the console.
#pragma once

namespace host {

enum class Verbosity {
    Quiet,   // what went wrong
    Normal,  // and what phones do
    Verbose, // and every channel, with the place that a line comes from
};

// Makes the engine's library loadable. Once, before the component is created.
void RegisterLogEngine(Verbosity verbosity);

} // namespace host
