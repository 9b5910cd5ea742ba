// Stream parameters as a recorder announces them: VideoParam and AudioParam, base64 text of
// the byte layouts in media/StreamParamLayout.h (two device layouts for each).
#pragma once

#include <string>

namespace devsim {

struct Clip;

std::string base64(const std::string& bytes, bool padding);
// Video block: 536 bytes sent without padding (decodes to 536), or the same bytes with
// ordinary padding, which the library's decoder counts as 537.
std::string videoParam(const Clip& video, int layout);
// Audio block: 276 bytes, or the compact 57-byte layout.
std::string audioParam(const Clip& audio, int layout);
// Body of the stream-parameter message: VideoParam, AudioParam (when audio), VideoSeconds.
std::string streamParamBody(const Clip& video, const Clip* audio, int videoLayout, int audioLayout,
                            long long seconds);

}  // namespace devsim
