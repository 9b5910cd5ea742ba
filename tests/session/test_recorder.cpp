// Recorder search, replay and download through a session without a worker: the exact
// requests on the wire, the answers' events, and the media routes of the dispatch.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/Base64.h"
#include "media/StreamParamLayout.h"
#include "media/media_test_util.h"
#include "ops/ops_harness.h"
#include "sdk/NetSDKFunc.h"
#include "sdk/QXNetSDKInternal.h"
#include "session/capture.h"

using mediatest::Pack;
using mediatest::Pos;
using opstest::Answer;
using opstest::Request;
using qxtest::Capture;

namespace {

struct ReplayGot {
  long loginId;
  unsigned long type;
  std::string data;
  FRAME_EXTDATA ext;
};
std::vector<ReplayGot> g_replay;
std::vector<std::pair<long, std::string>> g_playEvents;
mediatest::WriterLog g_writer;
int g_userTag;

long OnReplay(long id, unsigned long type, unsigned char* buf, unsigned long len, FRAME_EXTDATA* ext) {
  g_replay.push_back({id, type, std::string(reinterpret_cast<char*>(buf), len), *ext});
  return 0;
}
long OnPlayEvent(long, long action, long, char* text, void*) {
  g_playEvents.emplace_back(action, text ? text : "(null)");
  return 0;
}
std::unique_ptr<media::IDownloadWriter> MakeWriter() {
  return std::unique_ptr<media::IDownloadWriter>(new mediatest::RecordingWriter(&g_writer));
}

std::vector<qxtest::Event> EventsOf(long code) {
  std::vector<qxtest::Event> out;
  for (const auto& e : Capture::Get().Events())
    if (e.code == code) out.push_back(e);
  return out;
}

long Folded(unsigned int cmd, int flag) { return static_cast<long>(CNetSDKFunc::FoldAuxCode(cmd, flag)); }

std::string B64(const std::vector<unsigned char>& b) {
  std::vector<char> out(b.size() * 4 / 3 + 8);
  CBase64::Encode(b.data(), out.data(), static_cast<int>(b.size()));
  return out.data();
}

class Recorder : public opstest::SessionTest {
 protected:
  void SetUp() override {
    opstest::SessionTest::SetUp();
    g_replay.clear();
    g_playEvents.clear();
    g_writer = mediatest::WriterLog();
    QXNet_Loc_SetReplayDataCallBack(OnReplay, &g_userTag);
    QXNet_SetPlayActionEventCallBack(OnPlayEvent, nullptr);
    dev_->SetWriterFactoryForTest(&MakeWriter);
  }
  void TearDown() override {
    QXNet_Loc_SetReplayDataCallBack(nullptr, &g_userTag);
    QXNet_SetPlayActionEventCallBack(nullptr, nullptr);
    opstest::SessionTest::TearDown();
  }
  std::string SendNext() { return opstest::SendOne(dev_, peer_); }
  void ExpectNothingQueued() { EXPECT_EQ(dev_->QueuedCount(), 0); }
  // A media message: the text, its NUL and three more bytes, then the pack.
  void FeedMedia(const char* cmd, const Pack& p, long declared = -1) {
    auto bytes = p.Bytes();
    long len = declared >= 0 ? declared : static_cast<long>(bytes.size());
    std::string m = Answer("90000", cmd, "0", "<body><dataLen>" + std::to_string(len) + "</dataLen></body>");
    m.append(4, '\0');
    m.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    Feed(m);
  }
  // Starts a download of 08:30:00 .. 08:31:00 and takes its request off the queue.
  void StartDownload() {
    ASSERT_EQ(dev_->NVRRecordDownload(2, "20240101083000", "20240101083100", "/tmp/rec.mp4"), 0);
    SendNext();
  }
  static Pack VideoAt(uint32_t ts) {
    Pack p;
    p.ts = p.keyTs = ts;
    return p;
  }
};

// ---- search

TEST_F(Recorder, SearchByDayAsksWithByMonth0) {
  EXPECT_EQ(dev_->SearchNVRRecByTime(3, "20240101000000"), 0);
  EXPECT_EQ(SendNext(), Request("10000", "14300", "0",
                                "<ChannelId>3</ChannelId>\n<Time>20240101000000</Time>\n<ByMonth>0</ByMonth>\n"));
  EXPECT_EQ(Capture::Get().CountLogs("SearchNVRRecByTime return=0:<ChannelId>3</ChannelId>", 2), 1);
}

TEST_F(Recorder, SearchByMonthRefusesANegativeChannelOrNoDate) {
  EXPECT_EQ(dev_->SearchNvrRecByMonth(-1, "202401"), -2);
  EXPECT_EQ(dev_->SearchNvrRecByMonth(0, nullptr), -2);
  ExpectNothingQueued();
  EXPECT_EQ(Capture::Get().CountLogs("[SearchNvrRecByMonth] search nvr record by month refused, nChannelId=-1, pDate=0x", 0), 1);
  EXPECT_EQ(dev_->SearchNvrRecByMonth(4, "202401"), 0);
  EXPECT_EQ(SendNext(),
            Request("10000", "14300", "0", "<ChannelId>4</ChannelId>\n<Time>202401</Time>\n<ByMonth>1</ByMonth>\n"));
}

TEST_F(Recorder, SearchAnswerReachesTheAuxCallbackUnchanged) {
  Feed(Answer("10000", "14300", "0", "<body><RecordList>a</RecordList></body>"));
  auto aux = Capture::Get().Auxes();
  ASSERT_EQ(aux.size(), 1u);
  EXPECT_EQ(aux[0].code, 14300);
  EXPECT_EQ(aux[0].body, "<RecordList>a</RecordList>");
}

// ---- replay control

TEST_F(Recorder, ReplayByTimeAsksWithDownloadRecord0AndSetsReplayMode) {
  EXPECT_EQ(dev_->NVRReplayByTime(5, "20240101120000"), 0);
  EXPECT_EQ(SendNext(), Request("10000", "14301", "0",
                                "<ChannelId>5</ChannelId>\n<Time>20240101120000</Time>\n<DownloadRecord>0</DownloadRecord>"));
  EXPECT_EQ(dev_->ReplayMode(), 0);
  EXPECT_EQ(dev_->CurChannel(), 5);
}

TEST_F(Recorder, ControlActionZeroAndEightAreRefusedAndSendNothing) {
  EXPECT_EQ(dev_->ControlNVRReplay(1, 0, 0, "x"), -1);
  EXPECT_EQ(dev_->ControlNVRReplay(1, 8, 0, "x"), -1);
  ExpectNothingQueued();
  EXPECT_EQ(Capture::Get().CountLogs("[ControlNVRReplay] Control NVR replay failed, lAction=0 is error \n", 0), 1);
  EXPECT_EQ(Capture::Get().CountLogs("[ControlNVRReplay] Control NVR replay failed, lAction=8 is error \n", 0), 1);
}

TEST_F(Recorder, ControlActionSixSeeksToTheTimeText) {
  EXPECT_EQ(dev_->ControlNVRReplay(2, 6, 9, "20240101101010"), 0);
  EXPECT_EQ(SendNext(), Request("10000", "14304", "0", "<ChannelId>2</ChannelId>\n<Time>20240101101010</Time>"));
}

TEST_F(Recorder, ControlActionsHaveTheirCommandsAndBodies) {
  struct Case {
    unsigned action;
    const char* cmd;
    const char* body;
  } cases[] = {
      {1, "14310", "<ChannelId>7</ChannelId>\n<Speed>0</Speed>"},
      {2, "14309", "<ChannelId>7</ChannelId>\n<Speed>0</Speed>"},
      {3, "14302", "<ChannelId>7</ChannelId>\n<DownloadRecord>0</DownloadRecord>"},
      {4, "14306", "<ChannelId>7</ChannelId>\n<Speed>4</Speed>"},
      {5, "14307", "<ChannelId>7</ChannelId>\n<Speed>4</Speed>"},
      {7, "14308", "<ChannelId>7</ChannelId>\n<Speed>0</Speed>"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(dev_->ControlNVRReplay(7, c.action, 4, "t"), 0);
    EXPECT_EQ(SendNext(), Request("10000", c.cmd, "0", c.body)) << c.action;
  }
}

TEST_F(Recorder, ControlReplayEndsAtTheEmptyFileNameWhateverTheAction) {
  EXPECT_EQ(dev_->ControlReplay(9, 1), -86);  // the action check comes later
  EXPECT_EQ(dev_->ControlReplay(1, 1), -86);
  ExpectNothingQueued();
  EXPECT_EQ(Capture::Get().CountLogs("[ControlReplay] Dev=", 0), 2);
  EXPECT_EQ(Capture::Get().CountLogs(" Control replay refused, replay file is empty \n", 0), 2);
}

// ---- download requests

TEST_F(Recorder, DownloadComputesTheSpanFromHourMinuteSecond) {
  EXPECT_EQ(dev_->NVRRecordDownload(2, "20240101083000", "20240101093015", "/tmp/rec.mp4"), 0);
  EXPECT_EQ(dev_->DownloadState().start, 30600000u);
  EXPECT_EQ(dev_->DownloadState().end, 34215000u);
  EXPECT_STREQ(dev_->DownloadState().path, "/tmp/rec.mp4");
  EXPECT_EQ(dev_->DownloadState().firstTick, -1);
  EXPECT_TRUE(dev_->DownloadState().active);
  EXPECT_EQ(dev_->ReplayMode(), 1);
  EXPECT_EQ(dev_->CurChannel(), 2);
  EXPECT_EQ(SendNext(), Request("10000", "14301", "0",
                                "<ChannelId>2</ChannelId>\n<Time>20240101083000</Time>\n"
                                "<TimeEnd>20240101093015</TimeEnd>\n<DownloadRecord>1</DownloadRecord>"));
}

TEST_F(Recorder, DownloadWithoutTimesIsRefused) {
  EXPECT_EQ(dev_->NVRRecordDownload(2, nullptr, "20240101093015", "/tmp/a.mp4"), QXNET_E_MISSING_ARG);
  EXPECT_EQ(dev_->NVRRecordDownload(2, "20240101093015", nullptr, "/tmp/a.mp4"), QXNET_E_MISSING_ARG);
  ExpectNothingQueued();
  EXPECT_FALSE(dev_->DownloadState().active);
}

TEST_F(Recorder, StopWithoutADownloadSendsNothing) {
  EXPECT_EQ(dev_->NVRRecordDownloadStop(1), 0);
  ExpectNothingQueued();
}

TEST_F(Recorder, StopSendsDownloadRecord1AndClearsTheSpan) {
  StartDownload();
  EXPECT_EQ(dev_->NVRRecordDownloadStop(2), 0);
  EXPECT_EQ(SendNext(), Request("10000", "14302", "0", "<ChannelId>2</ChannelId>\n<DownloadRecord>1</DownloadRecord>"));
  EXPECT_FALSE(dev_->DownloadState().active);
  EXPECT_EQ(dev_->DownloadState().start, 0u);
  EXPECT_EQ(dev_->DownloadState().end, 0u);
  EXPECT_STREQ(dev_->DownloadState().path, "");
  EXPECT_EQ(dev_->ReplayMode(), 0);
  EXPECT_EQ(dev_->NVRRecordDownloadStop(2), 0);  // once
  ExpectNothingQueued();
}

// ---- download answers (type "10000" while a download runs)

TEST_F(Recorder, AcceptedDownloadIsEvent52) {
  StartDownload();
  Feed(Answer("10000", "14301", "0", "<body></body>"));
  auto ev = EventsOf(QXNET_EV_DOWNLOAD_ACCEPTED);
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].text, "request download NVR record ok");
  EXPECT_EQ(Capture::Get().CountLogs("[OnNVRReplayControlMsgRsp]:request download NVR record ok \n", 0), 1);
  EXPECT_TRUE(dev_->DownloadState().active);
}

TEST_F(Recorder, AnswerFlagMinus16SetsEndReachedAndPostsNoStatus) {
  StartDownload();
  Feed(Answer("10000", "14301", "-16", "<body></body>"));
  EXPECT_TRUE(dev_->DownloadState().endReached);
  EXPECT_TRUE(Capture::Get().Events().empty());
  // The active download was stopped.
  EXPECT_EQ(SendNext(), Request("10000", "14302", "0", "<ChannelId>2</ChannelId>\n<DownloadRecord>1</DownloadRecord>"));
  EXPECT_FALSE(dev_->DownloadState().active);
}

TEST_F(Recorder, RefusedDownloadStopsAndIsEvent53) {
  StartDownload();
  Feed(Answer("10000", "14301", "-3", "<body></body>"));
  auto ev = EventsOf(QXNET_EV_DOWNLOAD_REFUSED);
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].text, "request download NVR record failed");
  EXPECT_EQ(Capture::Get().CountLogs("[OnNVRReplayControlMsgRsp]:request download NVR record failed, flag=-3 \n", 0), 1);
  EXPECT_EQ(dev_->QueuedCount(), 1);  // the stop request
  EXPECT_FALSE(dev_->DownloadState().active);
  EXPECT_TRUE(Capture::Get().Auxes().empty());
}

TEST_F(Recorder, StopAnswerClosesTheFileAndIsEvent54) {
  StartDownload();
  Feed(Answer("10000", "14301", "0", "<body></body>"));
  FeedMedia("90002", VideoAt(30600000));
  ASSERT_EQ(g_writer.Count("create"), 1);
  EXPECT_EQ(dev_->NVRRecordDownloadStop(2), 0);
  Feed(Answer("10000", "14302", "0", "<body></body>"));
  auto ev = EventsOf(QXNET_EV_DOWNLOAD_STOPPED);
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].text, "stop download NVR record");
  EXPECT_EQ(g_writer.calls.back(), "close");
  // A later replay stop answer is the application's again.
  Feed(Answer("10000", "14302", "0", "<body><x/></body>"));
  EXPECT_EQ(EventsOf(QXNET_EV_DOWNLOAD_STOPPED).size(), 1u);
  EXPECT_EQ(Capture::Get().Auxes().size(), 1u);
}

TEST_F(Recorder, ReplayAnswersStayAuxResponses) {
  dev_->NVRReplayByTime(1, "20240101000000");
  Feed(Answer("10000", "14301", "0", "<body><ok/></body>"));
  EXPECT_TRUE(Capture::Get().Events().empty());
  auto aux = Capture::Get().Auxes();
  ASSERT_EQ(aux.size(), 1u);
  EXPECT_EQ(aux[0].code, 14301);
}

// ---- media routes

TEST_F(Recorder, ReplayPackReachesTheReplayCallbackWithItsUserPointer) {
  dev_->NVRReplayByTime(4, "20240101000000");
  Pack p;
  p.payload = "FRAME";
  p.ts = 777;
  FeedMedia("90001", p);
  ASSERT_EQ(g_replay.size(), 1u);
  EXPECT_EQ(g_replay[0].loginId, reinterpret_cast<long>(dev_));
  EXPECT_EQ(g_replay[0].type, 0u);
  EXPECT_EQ(g_replay[0].data, "FRAME");
  EXPECT_EQ(g_replay[0].ext.timestamp, 777.0);
  EXPECT_EQ(QXNet_FrameUser(&g_replay[0].ext), static_cast<void*>(&g_userTag));
  EXPECT_EQ(Capture::Get().CountLogs("frame_index=1 ch=4\n", 0), 1);
}

TEST_F(Recorder, MediaLengthBeyondTheFrameIsDropped) {
  Pack p;
  FeedMedia("90001", p, 5000);
  EXPECT_TRUE(g_replay.empty());
  EXPECT_EQ(Capture::Get().CountLogs("media data length=5000 runs past the frame", 1), 1);
  FeedMedia("90001", p, 0);  // length 0: silently nothing
  EXPECT_TRUE(g_replay.empty());
  EXPECT_EQ(Capture::Get().CountLogs("[OnRecvMediaData]"), 0);
}

TEST_F(Recorder, DownloadPacksAreWrittenWithProgress) {
  StartDownload();
  FeedMedia("90002", VideoAt(30600000));
  FeedMedia("90002", VideoAt(30630000));
  EXPECT_EQ(g_writer.calls.front(), "create /tmp/rec.mp4");
  EXPECT_EQ(g_writer.Count("video"), 2);
  auto ev = EventsOf(QXNET_EV_DOWNLOAD_PROGRESS);
  ASSERT_EQ(ev.size(), 2u);
  EXPECT_EQ(ev[0].text, Pos(0));
  EXPECT_EQ(ev[1].text, Pos(50));
}

TEST_F(Recorder, EndOfSpanSendsTheStopAndReports100) {
  StartDownload();
  FeedMedia("90002", VideoAt(30600000));
  FeedMedia("90002", VideoAt(30660001));
  EXPECT_EQ(SendNext(), Request("10000", "14302", "0", "<ChannelId>2</ChannelId>\n<DownloadRecord>1</DownloadRecord>"));
  auto ev = EventsOf(QXNET_EV_DOWNLOAD_PROGRESS);
  ASSERT_FALSE(ev.empty());
  EXPECT_EQ(ev.back().text, Pos(100));
  EXPECT_EQ(g_writer.calls.back(), "close");
}

TEST_F(Recorder, AudioBeforeVideoEndsTheDownloadWithAux14312) {
  StartDownload();
  Pack a = VideoAt(30600000);
  a.stream = 1;
  FeedMedia("90002", a);
  auto aux = Capture::Get().Auxes();
  ASSERT_EQ(aux.size(), 1u);
  EXPECT_EQ(aux[0].code, Folded(14312, -15));
  EXPECT_EQ(aux[0].body, "");
  EXPECT_TRUE(dev_->DownloadState().endReached);
}

// ---- stream parameters

std::vector<unsigned char> VideoBlock() {
  std::vector<unsigned char> b(streamparam::kVideoBlockSize, 0);
  std::memcpy(b.data(), "H264", 4);
  b[streamparam::kVideoHeaderLengthOffset] = 8;
  return b;
}
std::vector<unsigned char> AudioBlock() {
  std::vector<unsigned char> b(streamparam::kAudioBlockSize, 0);
  b[streamparam::kAudioCodecOffset] = 1;
  b[streamparam::kAudioBitsPerSampleOffset] = 16;
  return b;
}

TEST_F(Recorder, ReplayParametersAreDeliveredAsType2ThenEvent12AndTheMode) {
  dev_->NVRReplayByTime(1, "20240101000000");
  std::string body = "<body><VideoParam>" + B64(VideoBlock()) + "</VideoParam><AudioParam>" + B64(AudioBlock()) +
                     "</AudioParam><VideoSeconds>60</VideoSeconds></body>";
  Feed(Answer("90000", "90000", "0", body));
  ASSERT_EQ(g_replay.size(), 1u);
  EXPECT_EQ(g_replay[0].type, static_cast<unsigned long>(QXNET_REPLAY_PARAM_AV));
  ASSERT_EQ(g_replay[0].data.size(), sizeof(NETSDK_STREAM_PARAM));
  NETSDK_STREAM_PARAM rec;
  std::memcpy(&rec, g_replay[0].data.data(), sizeof(rec));
  EXPECT_EQ(rec.wHasVideo, 1);
  EXPECT_EQ(rec.wHasAudio, 1);
  EXPECT_EQ(rec.video.byWriterArg, 8);
  ASSERT_EQ(g_playEvents.size(), 2u);
  EXPECT_EQ(g_playEvents[0].first, QXNET_PLAY_EVENT_PARAMS);
  EXPECT_EQ(g_playEvents[1].first, 0);
  EXPECT_EQ(g_playEvents[1].second, g_playEvents[0].second);
  EXPECT_NE(g_playEvents[1].second.find("<VideoSeconds>60</VideoSeconds>"), std::string::npos);
}

TEST_F(Recorder, ReplayAnswerWithoutAudioRaisesOnlyTheModeEvent) {
  dev_->NVRReplayByTime(1, "20240101000000");
  Feed(Answer("90000", "90000", "0", "<body><VideoParam>" + B64(VideoBlock()) + "</VideoParam></body>"));
  EXPECT_TRUE(g_replay.empty());
  ASSERT_EQ(g_playEvents.size(), 1u);
  EXPECT_EQ(g_playEvents[0].first, 0);
}

TEST_F(Recorder, DownloadParametersMidDownloadBeginANewPart) {
  StartDownload();
  FeedMedia("90002", VideoAt(30600000));
  Feed(Answer("90000", "90000", "0", "<body><VideoParam>" + B64(VideoBlock()) + "</VideoParam></body>"));
  EXPECT_EQ(g_writer.Count("split H264 8"), 1);
  // Video only: handed to the callback as type 3 as well.
  ASSERT_EQ(g_replay.size(), 1u);
  EXPECT_EQ(g_replay[0].type, static_cast<unsigned long>(QXNET_REPLAY_PARAM_VIDEO));
  // Both blocks during a download: a new part, no callback.
  Feed(Answer("90000", "90000", "0", "<body><VideoParam>" + B64(VideoBlock()) + "</VideoParam><AudioParam>" +
                                         B64(AudioBlock()) + "</AudioParam></body>"));
  EXPECT_EQ(g_writer.Count("split"), 2);
  EXPECT_EQ(g_replay.size(), 1u);
  // Audio alone: a separate record as type 4.
  Feed(Answer("90000", "90000", "0", "<body><AudioParam>" + B64(AudioBlock()) + "</AudioParam></body>"));
  ASSERT_EQ(g_replay.size(), 2u);
  EXPECT_EQ(g_replay[1].type, static_cast<unsigned long>(QXNET_REPLAY_PARAM_AUDIO));
}

TEST_F(Recorder, FirstFrameOpensTheFileWithTheParametersReceivedBefore) {
  StartDownload();
  Feed(Answer("90000", "90000", "0", "<body><VideoParam>" + B64(VideoBlock()) + "</VideoParam></body>"));
  FeedMedia("90002", VideoAt(30600000));
  ASSERT_GE(g_writer.calls.size(), 2u);
  EXPECT_EQ(g_writer.calls[0], "create /tmp/rec.mp4");
  EXPECT_EQ(g_writer.calls[1], "addVideo H264 8");
}

}  // namespace
