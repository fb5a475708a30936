#include "client/tessaryctl/measurementpoll.h"

#include "client/tessaryctl/reading.h"

namespace tessary::ctl {

using namespace client;

MeasurementPoll::News MeasurementPoll::read(Controller& controller)
{
    News news;
    news.reading = readMeasurement(controller);
    news.state = m_watch.add(news.reading);
    news.total = m_watch.total();
    if (news.total.periods == m_periods)
        return news;
    m_periods = news.total.periods;
    news.times = readInterArrivalTimes(controller);
    news.newTimes = m_arrivals.add(*news.times, PeriodWatch::Clock::now());
    return news;
}

} // namespace tessary::ctl
