// The download path's writer on the MP4 writer.
#pragma once

#include <memory>

#include "media/DownloadWriter.h"

namespace media {

std::unique_ptr<IDownloadWriter> NewMp4DownloadWriter();

}  // namespace media
