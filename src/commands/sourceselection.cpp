#include "commands/sourceselection.h"

#include "measure/ethernetmeasurement.h"
#include "media/gstsource.h"

void discardSource()
{
    if (!instance)
        return;
    instance->stop();
    delete instance;
    instance = nullptr;
}

void discardMeasurementAndSource()
{
    ethMes->stop();
    discardSource();
}
