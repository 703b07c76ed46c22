#include "Sniffer/Sniffer.h"

// The screen recorder joins the window later; its button does nothing yet.
void Sniffer::runRecorderAV() {}

void Sniffer::saveRecorderAV(QString) {}
