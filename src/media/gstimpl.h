#pragma once

#include "media/mpegts.h"
#include "media/owned.h"
#include "media/playoutdelay.h"
#include "media/psitables.h"
#include "system/mutex.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <QObject>
#include <string>
#include <vector>

class gstmsgHandler;
class QThread;

/// Owner of one GStreamer pipeline: source, queue and tee as its fixed head, the branches that the modes hang
/// off the tee, the bus thread and the PSI tables.
///
/// Threads: every operation is called on the main thread; the section slots and slotEndOfStream() run on the
/// bus thread (direct connections); the decodebin callbacks run on GStreamer's streaming threads, one at a
/// time. Results of creation, linking and state changes are not looked at: what goes wrong shows as an error
/// message on the bus.
class gstImpl : public QObject
{
    Q_OBJECT
public:
    /// Builds the head around `source`, which the pipeline takes over, and starts the bus thread; the
    /// pipeline stays in the NULL state. A head that can not be built is logged and leaves an object without
    /// bus thread.
    explicit gstImpl(GstElement* source);
    /// Stops, empties the tables and ends the bus thread; waits 5 s for it at most.
    ~gstImpl() override;

    // Modes. They are not exclusive: branches stay until stop(). The int is the state-change result; no
    // caller needs it.

    /// Decodes the program and shows it on display and loudspeaker; a service without picture or without
    /// sound that can be decoded plays what it has. A second call reuses the branch: the new number reaches
    /// the demultiplexers that decodebin adds from then on.
    int play(int programNumber);
    /// Records the whole transport stream to a file; a second call switches the file.
    void record(std::string location);
    /// Sends the whole transport stream to the FPGA.
    int sendStream();
    /// Empties the tables and parses the stream for them.
    int scan();
    /// Ends every mode and removes every branch; nothing when no mode is active.
    void stop();

    /// "running" while a mode is active, else "stopped"; null does nothing.
    void status(std::string* out);
    /// Decoded picture size in pixels; -1 until a video pad was linked.
    int getVideoDecodedWidth();
    int getVideoDecodedHeight();
    /// Caps of the elementary stream that decodebin is about to decode, or null. Borrowed: valid until the
    /// next mode operation or the destructor.
    GstCaps* getVideoDecodedCaps();
    GstCaps* getAudioDecodedCaps();

    // Tables (gstimpl_tables.cpp). A returned pointer stays valid, and its bytes unchanged, until the same
    // getter is called again or the object ends, whatever sections arrive meanwhile.

    /// The last accepted PAT section; never null, empty before the first.
    std::vector<std::uint8_t>* getPAT();
    /// The accepted SDT sections one after another; never null.
    std::vector<std::uint8_t>* getSDT();
    /// Appends the same to `bytes`: a list that has grown for long is large, and is copied once.
    void appendSDT(std::vector<std::uint8_t>& bytes);
    /// False before the first SDT section.
    bool hasSDT();
    /// The PMT section of the program last played, or null.
    std::vector<std::uint8_t>* getPMT();
    /// The NIT sections in the order of their numbers; never null.
    std::vector<std::uint8_t>* getNIT();
    /// Number of programs in the PAT, program 0 not counted.
    int getTotalNumberOfProgramsFound();
    /// Program number at a position of the SDT's services, or of the PAT's programs when there is no SDT; 0
    /// outside.
    int getProgramNumber(int index);
    /// Empties the tables. (No demultiplexer filter is touched, despite the name.)
    void clearPIDFilter();

    // Diagnostics

    /// Writes the pipeline graph with all details to GStreamer's dot-file folder, if one is set.
    void debugdotfile(std::string name);
    /// Logs limits and levels of the branches' queues. On the main thread, which makes and removes the
    /// branches.
    void debugQueueSize();
    static void cb_underrun_queue(GstElement* queue, void* data);
    static void cb_overrun_queue(GstElement* queue, void* data);

public Q_SLOTS:
    void newPatSectionReceived(GstMpegtsSection* section);
    void newSdtSectionReceived(GstMpegtsSection* section);
    void newNitSectionReceived(GstMpegtsSection* section);
    void newPmtSectionReceived(GstMpegtsSection* section);
    /// Plays the last program again.
    void restart();
    /// Marks the object as stopped; the branches stay.
    void slotEndOfStream();

private:
    bool createHead();
    void startBusThread();
    void leaveRestToThread();
    void endBusThread();
    void beginMode();
    int startPipeline();
    void resetDecodeState();
    void createPlayElements();
    void createPlayBranch();
    void unlinkOtherBranches();
    void linkOtherBranches();
    template <typename Handle> void removeElement(Handle& element);
    /// The elements from a queue to its sink; empty before the play branch exists.
    std::vector<GstElement*> videoChain() const;
    std::vector<GstElement*> audioChain() const;
    /// With the pipeline in NULL: no chain is set aside any more.
    void bringChainsBack();
    void takeCaps(
        std::atomic<GstCaps*>& field, std::atomic<GstPad*>& fieldPad, GstPad* pad, const GstCaps* caps);
    void readPictureSize(const GstCaps* caps);

    static gint cb_autoplug_select_decodebin(
        GstBin* bin, GstPad* pad, GstCaps* caps, GstElementFactory* factory, void* data);
    static gboolean cb_new_pad_decodebin(GstElement* element, GstPad* pad, void* data);
    static void cb_element_added_decodebin(GstBin* bin, GstElement* element, void* data);
    static gboolean cb_new_stream_decodebin(GstBin* bin, GstPad* pad, GstCaps* caps, void* data);
    static void cb_no_more_pads_decodebin(GstElement* element, void* data);

    // Element handles are borrowed: the pipeline owns what was added to it.
    std::atomic<int> m_state{0}; ///< 1 while a mode is active
    std::atomic<bool> m_videoLinked{false}; ///< decodebin's video pad is linked
    std::atomic<bool> m_audioLinked{false}; ///< decodebin's audio pad is linked
    std::atomic<int> m_programNumber{0}; ///< program number last given to play()
    /// The tables lie between the bus thread, which stores them, and the getters, which copy them.
    Mutex m_tablesMutex;
    std::vector<std::uint8_t> m_sdtBytes GUARDED_BY(m_tablesMutex);
    std::vector<std::uint32_t> m_patPrograms GUARDED_BY(m_tablesMutex);
    std::vector<std::uint32_t> m_sdtServices GUARDED_BY(m_tablesMutex);
    std::vector<std::uint8_t> m_patBytes GUARDED_BY(m_tablesMutex);
    std::vector<NIT_vector_Struct> m_nitSections GUARDED_BY(m_tablesMutex);
    std::vector<PMT_vector_Struct> m_pmtSections GUARDED_BY(m_tablesMutex);
    // What the getters gave last: of the main thread alone.
    std::vector<std::uint8_t> m_patSnapshot;
    std::vector<std::uint8_t> m_sdtSnapshot;
    std::vector<std::uint8_t> m_pmtSnapshot;
    std::vector<std::uint8_t> m_nitBytes;
    GstElement* m_pPipeline = nullptr; ///< owned, one reference
    QThread* m_pThread = nullptr; ///< owned
    gstmsgHandler* m_pMsgHandler = nullptr; ///< owned
    /// Set by whoever lets go of thread and handler first: the bus thread at its end, or this object, which
    /// waits 5 s for it. The second of the two deletes them.
    std::shared_ptr<std::atomic<bool>> m_oneHasLetGo;
    GstElement* m_pSource = nullptr;
    GstElement* m_pQueue1 = nullptr;
    GstElement* m_pTee = nullptr;
    GstElement* m_pQueueTsParse = nullptr;
    GstElement* m_pTsParse = nullptr;
    GstElement* m_pFakesink = nullptr;
    GstElement* m_pDecodebin = nullptr;
    /// The one inside decodebin; written by a streaming thread.
    std::atomic<GstElement*> m_pMultiqueue{nullptr};
    // The two chains are also read by streaming threads, which link to them and set them aside.
    std::atomic<GstElement*> m_pVideoqueue{nullptr};
    std::atomic<GstElement*> m_pKmssink{nullptr};
    std::atomic<GstElement*> m_pAudioqueue{nullptr};
    std::atomic<GstElement*> m_pAudioconvert{nullptr};
    std::atomic<GstElement*> m_pAlsasink{nullptr};
    GstElement* m_pQueueRec = nullptr;
    GstElement* m_pFilesink = nullptr;
    GstElement* m_pQueuePciesink = nullptr;
    GstElement* m_pPciesink = nullptr;
    std::atomic<int> m_videoWidth{-1}; ///< pixels
    std::atomic<int> m_videoHeight{-1}; ///< pixels
    std::atomic<GstCaps*> m_videoCaps{nullptr}; ///< owned through m_takenCaps
    std::atomic<GstPad*> m_videoCapsPad{nullptr}; ///< borrowed, compared only
    std::atomic<GstCaps*> m_audioCaps{nullptr}; ///< owned through m_takenCaps
    std::atomic<GstPad*> m_audioCapsPad{nullptr}; ///< borrowed, compared only

    PlayoutDelay m_playoutDelay; ///< of a live stream

    Mutex m_capsMutex; ///< streaming threads take caps, each for a pad of its own
    /// Owned copies, kept while a reader may hold one; released at the next mode.
    std::vector<Owned<GstCaps>> m_takenCaps GUARDED_BY(m_capsMutex);
};
