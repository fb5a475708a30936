#include "kit/handlertest.h"

#include "kit/gstreamer.h"
#include "measure/ethernetmeasurement.h"
#include "media/gstsource.h"
#include "system/mydata.h"

void HandlerTest::SetUp()
{
    ControllerLine::SetUp();
    if (IsSkipped())
        return;
    tessary::test::startGStreamer();
    data = MyData();
    if (!ethMes)
        ethMes = new ETHERNETMeasurement; // as the daemon has it: never deleted
    prepare();
}

void HandlerTest::TearDown()
{
    delete instance;
    instance = nullptr;
    ControllerLine::TearDown();
}
