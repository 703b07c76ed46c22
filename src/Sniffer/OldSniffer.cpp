#include "Sniffer/Sniffer.h"

// The list of sniffed media joins the window later.
void Sniffer::runOldSniffer() {}

void Sniffer::showOldSniffer() {}

void Sniffer::initClickDownloadOS() {}

void Sniffer::onRightClickDownloadOS(QPoint) {}

void Sniffer::onClickDownloadOSItem() {}
