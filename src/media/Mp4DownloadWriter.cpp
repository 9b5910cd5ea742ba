#include "media/Mp4DownloadWriter.h"

#include "media/Mp4Writer.h"

namespace media {
namespace {

class Mp4DownloadWriter : public IDownloadWriter {
 public:
  bool create(const char* path) override { return m_w.create(path); }
  bool addVideo(const char* name, const unsigned char* header, unsigned char length) override {
    return m_w.addVideo(name, header, length);
  }
  void writeVideo(unsigned char* frame, unsigned length, bool isSync, unsigned char codec, uint32_t ts) override {
    m_w.writeVideo(frame, length, isSync, codec, ts);
  }
  void writeAudio(const unsigned char* data, unsigned length, unsigned char codec, uint32_t ts) override {
    m_w.writeAudio(data, length, codec, ts);
  }
  void splitFile(const char* name, const unsigned char* header, unsigned char length) override {
    m_w.splitFile(name, header, length);
  }
  void close() override { m_w.close(); }

 private:
  Mp4Writer m_w;
};

}  // namespace

std::unique_ptr<IDownloadWriter> NewMp4DownloadWriter() { return std::unique_ptr<IDownloadWriter>(new Mp4DownloadWriter); }

}  // namespace media
