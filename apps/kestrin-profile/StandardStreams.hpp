#pragma once

namespace KestrinProfileCLI {

/// Puts something that can neither be read nor written in the place of standard streams that the
/// program was started without. Otherwise the next file or connection to be opened would take their
/// numbers, and what is printed would go there. Called before anything is opened.
void takeUpClosedStreams();

}  // namespace KestrinProfileCLI
