// Recorder answers and media packs: the "90000" routes, the download answers, the stream
// parameters, and the session's side of the download (stop procedure, events, writer).
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <tinyxml.h>

#include "base/FuncLog.h"
#include "media/Mp4DownloadWriter.h"
#include "media/StreamParams.h"
#include "session/DevComControl.h"
#include "session/MediaEnvelope.h"
#include "session/Protocol.h"
#include "xml/xmlutil.h"

namespace {

// Owns a text allocated by the XML layer (freed with delete[]).
struct OwnedText {
  char* p = nullptr;
  ~OwnedText() { delete[] p; }
};

// The stream-parameter texts of an answer's body, each cut to its 1,024-byte buffer.
struct ParamTexts {
  std::string video, audio, seconds;
  bool hasVideo = false, hasAudio = false;
};

const TiXmlElement* FindElement(const TiXmlElement* e, const char* name) {
  for (; e; e = e->NextSiblingElement()) {
    if (e->ValueStr() == name) return e;
    if (const TiXmlElement* inner = FindElement(e->FirstChildElement(), name)) return inner;
  }
  return nullptr;
}

bool ReadParam(const TiXmlElement* root, const char* name, std::string* out) {
  const TiXmlElement* e = FindElement(root, name);
  if (!e) return false;
  const char* t = e->GetText();
  out->assign(t ? t : "", t ? strnlen(t, media::kParamTextMax) : 0);
  return true;
}

// Parses `xmlBody` ("<body>...</body>"); false when it does not parse.
bool ReadParamTexts(const char* xmlBody, ParamTexts* out) {
  TiXmlDocument doc;
  doc.Parse(xmlBody);
  if (doc.Error() || !doc.RootElement()) return false;
  const TiXmlElement* root = doc.RootElement();
  out->hasVideo = ReadParam(root, "VideoParam", &out->video);
  out->hasAudio = ReadParam(root, "AudioParam", &out->audio);
  ReadParam(root, "VideoSeconds", &out->seconds);  // read, not used
  return true;
}

}  // namespace

CDevComControl::WriterFactory CDevComControl::DefaultWriterFactory() { return &media::NewMp4DownloadWriter; }

// ---- the "90000" routes

const unsigned char* CDevComControl::MediaBlock(const char* msg, size_t* length) {
  int64_t pos = 0;
  long len = 0;
  if (GetXmlPosAndDataLen(msg, &pos, &len) != 0 || len < 1) return nullptr;
  return PackAfterText(msg, strnlen(msg, m_nRecvLen), len, length);
}

// The pack 4 bytes after the envelope text, when its dataLen stays within the frame.
const unsigned char* CDevComControl::PackAfterText(const char* msg, size_t text, long len, size_t* length) {
  if (len < 1) return nullptr;
  size_t at = text + 4;
  if (at > m_nRecvLen || static_cast<unsigned long>(len) > m_nRecvLen - at) {
    fLog(1, "[ParserRecvData] dev=%s media data length=%ld runs past the frame, dropped \n", m_szDevAddr, len);
    return nullptr;
  }
  *length = static_cast<size_t>(len);
  return reinterpret_cast<const unsigned char*>(msg) + at;
}

void CDevComControl::OnMediaMessage(const char* cmd, const char* result, const char* msg,
                                    const MediaEnvelope* envelope) {
  size_t length = 0;
  bool replay = proto::IsCmd(cmd, proto::kCmdReplayMedia);
  if (replay || proto::IsCmd(cmd, proto::kCmdDownloadMedia)) {
    const unsigned char* block = envelope ? PackAfterText(msg, envelope->textLength, envelope->dataLen, &length)
                                          : MediaBlock(msg, &length);
    if (block && replay) OnRecvMediaData(block, length);
    if (block && !replay) OnRecvNVRDownloadMediaData(block, length);
  } else if (proto::IsCmd(cmd, proto::kCmdReplayParams)) {
    int mode = m_nReplayMode.load();
    if (mode != 0 && mode != 1) return;
    fLog(3, "recv dev=%s MEDIA_DATA_MESSAGE_PLAYAVPARAM xml=%s \n", m_szDevAddr, msg);
    if (mode == 0)
      OnReplayControlMsgRsp(result);
    else
      OnNVRReplayControlMsgRsp(cmd, result);
  }
}

int CDevComControl::OnRecvMediaData(const unsigned char* pack, size_t length) {
  m_replay.OnPack(pack, length, m_nCurChannel.load());
  return 0;
}

int CDevComControl::OnRecvNVRDownloadMediaData(const unsigned char* pack, size_t length) {
  return m_nvrDownload.assembler.OnPack(pack, length);
}

// ---- answers of the download path

bool CDevComControl::IsDownloadAnswer(const char* cmd) const {
  if (proto::IsCmd(cmd, proto::kCmdRecordPlay)) return m_nReplayMode.load() == 1;
  if (proto::IsCmd(cmd, proto::kCmdRecordStop)) return m_nReplayMode.load() == 1 || m_nvrDownload.stopAnswerDue;
  return false;
}

void CDevComControl::OnNVRReplayControlMsgRsp(const char* cmd, const char* result) {
  long code = std::atol(cmd);
  long flag = std::atol(result);
  OwnedText body;
  if (m_pCurMsg && GetMessageXMLBody(m_pCurMsg, &body.p) == 0) {
    if (!body.p || !*body.p) {
      PostAux(cmd, result, "");
    } else {
      ParamTexts t;
      if (ReadParamTexts(body.p, &t) && (t.hasVideo || t.hasAudio))
        OnDownloadParams(t.hasVideo ? t.video.c_str() : nullptr, t.hasAudio ? t.audio.c_str() : nullptr);
    }
  }
  bool downloadMode = m_nReplayMode.load() == 1;
  if (code == proto::kCmdRecordPlay && downloadMode) {
    OnDownloadAnswer(code, flag);
  } else if (code == proto::kCmdRecordStop && (downloadMode || m_nvrDownload.stopAnswerDue)) {
    m_nvrDownload.stopAnswerDue = false;
    m_nvrDownload.assembler.CloseWriter();
    PostStatus(QXNET_EV_DOWNLOAD_STOPPED, "stop download NVR record");
    fLog(0, "[OnNVRReplayControlMsgRsp]:stop download NVR record \n");
  } else {
    PostAux(cmd, result, body.p ? body.p : "");
  }
}

void CDevComControl::OnDownloadAnswer(long /*code*/, long flag) {
  media::DownloadSpan& span = m_nvrDownload.Span();
  if (flag == 0) {
    span.active = true;
    PostStatus(QXNET_EV_DOWNLOAD_ACCEPTED, "request download NVR record ok");
    fLog(0, "[OnNVRReplayControlMsgRsp]:request download NVR record ok \n");
  } else if (flag == -16) {
    // The device has nothing more of the span: it ends quietly.
    span.endReached = true;
    if (span.active) RunStopProcedure(m_nCurChannel.load());
  } else {
    if (span.active) RunStopProcedure(m_nCurChannel.load());
    span.active = false;
    PostStatus(QXNET_EV_DOWNLOAD_REFUSED, "request download NVR record failed");
    fLog(0, "[OnNVRReplayControlMsgRsp]:request download NVR record failed, flag=%d \n", static_cast<int>(flag));
  }
}

void CDevComControl::OnDownloadParams(const char* video, const char* audio) {
  NETSDK_STREAM_PARAM& rec = m_nvrDownload.assembler.Params();
  NETSDK_STREAM_PARAM audioOnly;
  bool active = m_nvrDownload.Span().active;
  switch (media::BuildDownloadRecord(video, audio, &rec, &audioOnly)) {
    case media::DownloadParams::kBoth:
      if (active)
        m_nvrDownload.assembler.SplitWithParams();
      else
        DeliverRecord(QXNET_REPLAY_PARAM_AV, &rec);
      break;
    case media::DownloadParams::kVideoOnly:
      if (active) m_nvrDownload.assembler.SplitWithParams();
      DeliverRecord(QXNET_REPLAY_PARAM_VIDEO, &rec);
      break;
    case media::DownloadParams::kAudioOnly:
      DeliverRecord(QXNET_REPLAY_PARAM_AUDIO, &audioOnly);
      break;
    case media::DownloadParams::kNone:
      break;
  }
}

void CDevComControl::DeliverRecord(unsigned long type, NETSDK_STREAM_PARAM* rec) {
  if (!m_pSink) return;
  FRAME_EXTDATA ext;
  std::memset(&ext, 0, sizeof(ext));
  m_pSink->OnFReplayMediaData(this, type, reinterpret_cast<unsigned char*>(rec), sizeof(*rec), &ext);
}

// ---- answers of the replay path

void CDevComControl::OnReplayControlMsgRsp(const char* /*result*/) {
  OwnedText xmlBody, body;
  ParamTexts t;
  if (m_pCurMsg && GetMessageXMLBody(m_pCurMsg, &xmlBody.p) == 0 && xmlBody.p) ReadParamTexts(xmlBody.p, &t);
  if (m_pCurMsg) GetMessageBody(m_pCurMsg, &body.p);
  char empty[1] = {0};
  char* text = body.p ? body.p : empty;
  NETSDK_STREAM_PARAM rec;
  media::BuildReplayRecord(t.hasVideo ? t.video.c_str() : nullptr, t.hasAudio ? t.audio.c_str() : nullptr, &rec);
  long mode = m_nReplayMode.load();
  if (rec.wHasAudio) {
    DeliverRecord(QXNET_REPLAY_PARAM_AV, &rec);
    if (m_pSink) m_pSink->OnFRePlayEventCallBack(this, QXNET_PLAY_EVENT_PARAMS, 0, text);
  }
  if (m_pSink) m_pSink->OnFRePlayEventCallBack(this, mode, 0, text);
}

// ---- the session's side of a download

void CDevComControl::RunDownloadStop() { RunStopProcedure(m_nCurChannel.load()); }

void CDevComControl::PostDownloadAux(unsigned int code, int flag, const char* text) {
  if (m_pSink) m_pSink->OnPostAuxRspMsg(this, code, flag, text);
}

void CDevComControl::PostDownloadStatus(int event, char* text) { PostStatus(event, text); }

std::unique_ptr<media::IDownloadWriter> CDevComControl::NewDownloadWriter() {
  return m_writerFactory ? m_writerFactory() : nullptr;
}
