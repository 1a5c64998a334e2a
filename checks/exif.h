#pragma once

#include "checks/recordingtime.h"

class QIODevice;

/// Reads when a photo was taken: DateTimeOriginal, with SubSecTimeOriginal if it is there, of Exif 2.3 in a
/// JPEG, and in a TIFF such as DNG. `file` is open and seekable. Reads the tables on the way, never the
/// picture.
[[nodiscard]] RecordingTime readPhotoTime(QIODevice &file);
