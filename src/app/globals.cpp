// The process-wide objects. They are constructed in the order in which they stand here, before main() runs,
// and destroyed in the reverse order; each is declared in the header of its module.
#include "app/worker.h"
#include "link/serialport.h"
#include "measure/ethernetmeasurement.h"
#include "media/gstsource.h"
#include "system/mydata.h"
#include "system/network.h"
#include "system/system_config.h"

MyData data;
Network net;
system_config systconf;
SerialPort uart;

std::int32_t ReceivedBytes = 0;
std::uint8_t EthernetConnected = 0;
gstsource* instance = nullptr;
ETHERNETMeasurement* ethMes = nullptr;
