// Writes a recorder download into MP4 files through libavformat. Mp4Writer.cpp is the only
// file of the library that includes FFmpeg headers.
//
// Files are fragmented MP4 (a fragment per key frame), so a download cut short keeps a playable
// file up to its last fragment. Frames arrive as Annex B access units with their timestamps in
// milliseconds; the writer converts every NAL unit. A split never overwrites: the first part keeps
// the name given to create(), later parts are name_1.mp4, name_2.mp4, ...
#pragma once

#include <cstdint>
#include <memory>
#include <string>

class Mp4Writer {
 public:
  // Audio codec numbers accepted by the audio operations.
  static constexpr unsigned char kAudioG711U = 0;
  static constexpr unsigned char kAudioG711A = 8;
  static constexpr unsigned char kAudioAac = 97;
  // Video codec byte after a track was added; 0xFF = none.
  static constexpr unsigned char kVideoH264 = 96;
  static constexpr unsigned char kVideoH265 = 201;
  static constexpr unsigned char kNone = 0xFF;

  Mp4Writer();
  ~Mp4Writer();  // closes like close()
  Mp4Writer(const Mp4Writer&) = delete;
  Mp4Writer& operator=(const Mp4Writer&) = delete;

  // Opens PATH for writing (the part counter starts at 0: PATH itself).
  bool create(const char* path);
  // Finishes the current file (if any); both codec bytes go back to kNone.
  void close();
  // codecName: "H265..." selects H.265, anything else H.264. header: Annex B block holding the
  // parameter sets (4-byte start codes), length <= 255. False when a video track exists, the
  // block lacks a set, or a set is longer than its buffer.
  bool addVideo(const char* codecName, const unsigned char* header, unsigned char length);
  bool addAudio(unsigned char codec);
  // frame: one Annex B access unit; timestampMs: the frame's frame_timestamp.
  void writeVideo(unsigned char* frame, unsigned length, bool isSync, unsigned char codec,
                  uint32_t timestampMs);
  void writeAudio(const unsigned char* data, unsigned length, unsigned char codec,
                  uint32_t timestampMs);
  // New stream parameters: finishes the current part and begins the next numbered one.
  void splitFile(const char* codecName, const unsigned char* header, unsigned char length);

  bool isOpen() const;
  unsigned char videoCodec() const;
  unsigned char audioCodec() const;
  // Name of the part being written now ("" when closed).
  const std::string& currentPath() const;

 private:
  // An audio codec change ends the part at the next key frame; the new codec starts the next part.
  void beginAudioPart();

  struct Impl;
  std::unique_ptr<Impl> impl_;
};
