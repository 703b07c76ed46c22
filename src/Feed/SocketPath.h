#pragma once

#include <QString>

namespace Feed {

// The local socket the running program listens on for reports:
// "sniffer.socket" in a folder of the user's alone, made if need be:
// "vidorra2" in $XDG_RUNTIME_DIR when that is the user's private folder,
// else "vidorra2-UID" in the temporary folder (or "vidorra2-UID-1" and on,
// when another user holds that name). Empty when no such folder can be had.
QString socketPath();

} // namespace Feed
