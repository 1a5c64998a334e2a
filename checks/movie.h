#pragma once

#include "checks/recordingtime.h"

class QIODevice;

/// Reads start and length of a movie from its movie header: "mvhd" in "moov" of ISO/IEC 14496-12, and of
/// QuickTime, wherever "moov" stands. `file` is open, seekable and of known size. Reads a few bytes of each
/// box on the way, never the recording itself.
[[nodiscard]] RecordingTime readMovieTime(QIODevice &file);
