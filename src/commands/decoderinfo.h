#pragma once

#include "media/mpegts.h"

/// Code of the video coding that the caps of an elementary stream name, as the controller's decoder
/// information frame counts them: 1 MPEG-1/2, 2 H.264, 3 MPEG-4 Visual, 8 VP6, 10 VP8, 14 VP9, 15 H.265; 0
/// for none of these, null caps and caps without a structure. The caps are only read.
unsigned videoCode(const GstCaps* caps);

/// The same for audio: 1 AAC, 2 AC-3, 3 MPEG layer 1, 4 layer 2, 5 layer 3, 7 E-AC-3, 11 AC-4; 0 for none of
/// these.
unsigned audioCode(const GstCaps* caps);
