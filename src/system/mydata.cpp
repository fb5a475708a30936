#include "system/mydata.h"

std::string wiredInterfaceName(bool vlan, const std::string& vlanId)
{
    return vlan ? "eth0." + vlanId : "eth0";
}
