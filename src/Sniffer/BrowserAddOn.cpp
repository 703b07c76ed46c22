#include "Sniffer/Sniffer.h"

// Connecting the browser add-on joins the window with the feed.
void Sniffer::connectBrowserAddOn() {}
