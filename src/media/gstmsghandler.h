#pragma once

#include "media/mpegts.h"

#include <QObject>

/// Reads a pipeline's bus on a thread of its own and turns PSI sections and the end of the stream into
/// signals. Receivers connect directly, so their slots run inside the loop, on the bus thread. The section
/// that a signal carries is one reference, which the receiver releases.
class gstmsgHandler : public QObject
{
    Q_OBJECT
public:
    /// `pipeline` is borrowed and must outlive the loop.
    explicit gstmsgHandler(GstElement* pipeline);
    ~gstmsgHandler() override;

    /// Has the loop look at once whether an interruption was requested, also while nothing happens in the
    /// pipeline, which is not to be started again. Any thread.
    void wake();

Q_SIGNALS:
    void newPatSection(GstMpegtsSection* section);
    void newSdtSection(GstMpegtsSection* section);
    void newNitSection(GstMpegtsSection* section);
    void newPmtSection(GstMpegtsSection* section);
    void signalEndOfStream();

public Q_SLOTS:
    /// The loop. Returns within a second of an interruption request to its thread, at once when woken, and
    /// then ends that thread; errors and the end of a stream keep it running.
    void doWork();

private:
    void handleMessage(GstMessage* message);
    void handleError(GstMessage* message);
    void handleSection(GstMpegtsSection* section);

    GstElement* m_pipeline; ///< borrowed
};
