#pragma once

#include <QString>

namespace Feed {

// The local socket the running program listens on for reports:
// "sniffer.socket" in its data folder, or, when that path is too long for a
// socket address, a name with the user's id in the temporary folder.
QString socketPath();

} // namespace Feed
