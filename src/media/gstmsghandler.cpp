#include "media/gstmsghandler.h"

#include "media/owned.h"
#include "system/system_config.h"

#include <QString>
#include <QtDebug>
#include <QThread>

namespace {

constexpr GstClockTime pollTimeNs = 1000000000;
constexpr const char* wakeUpName = "tessary-bus-loop-wake-up";

// Table ids of the sections that the tables take (ISO/IEC 13818-1, ETSI EN 300 468).
constexpr guint8 tableIdPat = 0x00;
constexpr guint8 tableIdPmt = 0x02;
constexpr guint8 tableIdNitActual = 0x40;
constexpr guint8 tableIdSdtActual = 0x42;

/// The console learns of each message by one empty write: this is meant, a stream's messages must not flood
/// it. The messages' own vocabulary is what the callers format.
void noteOnConsole(const QString&)
{
    const QString text;
    system_config().special_debug(text.toUtf8().constData(), text.size());
}

} // namespace

gstmsgHandler::gstmsgHandler(GstElement* pipeline)
    : QObject(nullptr)
    , m_pipeline(pipeline)
{
}

gstmsgHandler::~gstmsgHandler()
{
    deleteLater(); // harmless: the base destructor drops the event again
}

void gstmsgHandler::wake()
{
    const Owned<GstBus> bus(gst_element_get_bus(m_pipeline));
    gst_bus_set_flushing(bus.get(), FALSE); // a stopped pipeline's bus drops what is posted
    gst_bus_post(bus.get(), gst_message_new_application(nullptr, gst_structure_new_empty(wakeUpName)));
}

void gstmsgHandler::doWork()
{
    Owned<GstBus> bus(gst_element_get_bus(m_pipeline));
    while (!QThread::currentThread()->isInterruptionRequested()) {
        const Owned<GstMessage> message(gst_bus_timed_pop(bus.get(), pollTimeNs));
        if (message)
            handleMessage(message.get());
    }
    // A message left there would keep the pipeline, which keeps the bus.
    gst_bus_set_flushing(bus.get(), TRUE);
    bus.reset(); // while this thread is sure to go on
    // Ends the thread's event loop before it starts; nothing else would end it.
    QThread::currentThread()->terminate();
}

void gstmsgHandler::handleMessage(GstMessage* message)
{
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ERROR:
        handleError(message);
        break;
    case GST_MESSAGE_ELEMENT:
        if (GstMpegtsSection* section = gst_message_parse_mpegts_section(message))
            handleSection(section);
        break;
    case GST_MESSAGE_EOS:
        g_print("EOS\n");
        Q_EMIT signalEndOfStream(); // before the pipeline stops: the receiver's state says "stopped" first
        gst_element_set_state(m_pipeline, GST_STATE_NULL);
        break;
    case GST_MESSAGE_APPLICATION:
        if (gst_message_has_name(
                message, wakeUpName)) // nothing of the pipeline's: the console does not learn of it
            break;
        [[fallthrough]];
    default:
        noteOnConsole(
            QString::asprintf("Unexpected message of type %d", static_cast<int>(GST_MESSAGE_TYPE(message))));
        break;
    }
}

void gstmsgHandler::handleError(GstMessage* message)
{
    GError* givenError = nullptr;
    gchar* givenDetails = nullptr;
    gst_message_parse_error(message, &givenError, &givenDetails);
    const Owned<GError> error(givenError);
    const Owned<gchar> details(givenDetails);
    // The pipeline stays as it is, and nothing else would tell why it shows nothing any more.
    qWarning("GStreamer, %s: %s (%s)", GST_MESSAGE_SRC_NAME(message), error ? error->message : "error",
        qUtf8Printable(QString::fromUtf8(details.get()).simplified()));
    if (error)
        noteOnConsole(QString::asprintf("ERROR: %s\n", error->message));
    if (details)
        noteOnConsole(QString::asprintf("[Debug details: %s]\n", details.get()));
}

void gstmsgHandler::handleSection(GstMpegtsSection* section)
{
    const GstMpegtsSectionType type = GST_MPEGTS_SECTION_TYPE(section);
    if (type == GST_MPEGTS_SECTION_PAT && section->table_id == tableIdPat)
        Q_EMIT newPatSection(section);
    else if (type == GST_MPEGTS_SECTION_SDT && section->table_id == tableIdSdtActual)
        Q_EMIT newSdtSection(section);
    else if (type == GST_MPEGTS_SECTION_PMT && section->table_id == tableIdPmt)
        Q_EMIT newPmtSection(section);
    else if (type == GST_MPEGTS_SECTION_NIT && section->table_id == tableIdNitActual)
        Q_EMIT newNitSection(section);
    else
        // Other networks' tables, EIT, TDT, CAT and what else a stream carries.
        gst_mpegts_section_unref(section);
}
