// The bus thread looks at its bus for a second at a time, and its end is waited for in steps of 100 ms. Both
// are shortened, so that an input that makes and drops sources takes milliseconds.
#include <algorithm>
#include <gst/gst.h>
#include <poll.h>

extern "C" {

GstMessage* __real_gst_bus_timed_pop(GstBus* bus, GstClockTime timeout);

GstMessage* __wrap_gst_bus_timed_pop(GstBus* bus, GstClockTime timeout)
{
    return __real_gst_bus_timed_pop(bus, std::min<GstClockTime>(timeout, GST_MSECOND));
}
}

void wrappedMsleep(unsigned long milliseconds) __asm__("__wrap__ZN7QThread6msleepEm");
void wrappedMsleep(unsigned long)
{
    poll(nullptr, 0, 2);
}
