#include "Sniffer/Sniffer.h"

// The daily update check and the self-test of the downloader tool join the
// window later; until then start-up never asks for an update.
bool Sniffer::checkLastUpdateDate()
{
    return false;
}

void Sniffer::updateSniffer() {}

void Sniffer::postUpdateSniffer() {}

void Sniffer::testSniffer() {}

void Sniffer::mirelSetDefaultURL() {}
