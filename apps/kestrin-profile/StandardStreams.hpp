#pragma once

namespace KestrinProfileCLI {

/// Opens every standard stream that the program was started without on something that can be
/// neither read nor written. Otherwise the next file or connection would get its number, and what
/// is printed would go there. Called before anything else is opened.
void replaceClosedStandardStreams();

}  // namespace KestrinProfileCLI
