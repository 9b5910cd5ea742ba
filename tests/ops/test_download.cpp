// Configuration-file download: the request, the length announcement that creates the
// receiver and its file, data answers whose bytes follow the text, and every way the
// transfer ends or does not.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "ops/ops_harness.h"
#include "sdk/NetSDKFunc.h"
#include "sdk/QXNetSDKInternal.h"
#include "session/capture.h"

using opstest::Answer;
using opstest::DataAnswer;
using qxtest::Capture;

namespace {

const char kProgress0[] = "\n<downProgress>0</downProgress>\n";
const char kProgress100[] = "\n<downProgress>100</downProgress>\n";
const char kProgressM1[] = "\n<downProgress>-1</downProgress>\n";
const char kProgressM2[] = "\n<downProgress>-2</downProgress>\n";
const char kProgressM3[] = "\n<downProgress>-3</downProgress>\n";

std::string LengthAnswer(long length) {
  return Answer("20000", "20006", "0", "<body><fileLength>" + std::to_string(length) + "</fileLength></body>");
}

std::vector<std::string> Progress() {
  std::vector<std::string> out;
  for (const qxtest::Event& e : Capture::Get().Events())
    if (e.code == QXNET_EV_CFGFILE_GET_PROGRESS) out.push_back(e.text);
  return out;
}

int OtherEvents() {
  int n = 0;
  for (const qxtest::Event& e : Capture::Get().Events())
    if (e.code != QXNET_EV_CFGFILE_GET_PROGRESS && e.code != QXNET_EV_SOCKET_ERROR) ++n;
  return n;
}

class Download : public opstest::SessionTest {
 protected:
  void Ask(const std::string& path) {
    ASSERT_EQ(0, dev_->GetConfigFile(path.c_str()));
    ASSERT_TRUE(Flush(peer_->Count() + 1));
  }
  opstest::TempDir tmp_;
};

TEST_F(Download, RequestIs20006WithAnEmptyBody) {
  const std::string path = tmp_.File("dev.cfg");
  ASSERT_EQ(0, dev_->GetConfigFile(path.c_str()));
  EXPECT_EQ(dev_->QueuedCount(), 1);
  ASSERT_TRUE(Flush(1));
  EXPECT_EQ(peer_->Payload(0),
            "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>20000</type>\n"
            "<cmd>20006</cmd>\n<result>0</result>\n</head>\n<body>\n</body>\n</PrivateProto>");
  EXPECT_EQ(peer_->Payload(0), opstest::Request("20000", "20006", "0", ""));
  // The request alone creates nothing.
  EXPECT_FALSE(opstest::FileExists(path));
  EXPECT_TRUE(Progress().empty());
}

TEST_F(Download, LengthAnswerCreatesTheFileAndPostsProgressZero) {
  const std::string path = tmp_.File("dev.cfg");
  Ask(path);
  Feed(LengthAnswer(10));
  EXPECT_TRUE(opstest::FileExists(path));
  EXPECT_EQ(Progress(), std::vector<std::string>{kProgress0});
  EXPECT_EQ(Capture::Get().CountLogs("++++++++++++++filename = " + path + " \n", 3), 1);
}

TEST_F(Download, LengthAnswerTruncatesAnExistingFile) {
  const std::string path = tmp_.File("old.cfg");
  ASSERT_TRUE(opstest::WriteFile(path, "previous content"));
  Ask(path);
  Feed(LengthAnswer(3));
  std::string now;
  ASSERT_TRUE(opstest::ReadFile(path, &now));
  EXPECT_EQ(now, "");
}

TEST_F(Download, DataOverSeveralAnswersGivesExactlyZeroAnd100AndTheSameBytes) {
  const std::string path = tmp_.File("dev.cfg");
  const std::string content = opstest::PatternBytes(300000, 21);  // binary, zero bytes included
  ASSERT_NE(content.find('\0'), std::string::npos);
  Ask(path);
  Feed(LengthAnswer(static_cast<long>(content.size())));
  const size_t pieces[] = {1, 4095, 100000, 65536, 1};
  size_t pos = 0;
  for (size_t n : pieces) {
    Feed(DataAnswer(static_cast<long>(pos), static_cast<long>(n), content.substr(pos, n)));
    pos += n;
    EXPECT_EQ(Progress().size(), 1u) << "no progress for an intermediate piece";
  }
  size_t last = content.size() - pos;
  Feed(DataAnswer(static_cast<long>(pos), static_cast<long>(last), content.substr(pos)));
  EXPECT_EQ(Progress(), (std::vector<std::string>{kProgress0, kProgress100}));
  EXPECT_EQ(OtherEvents(), 0);
  // The file is complete and closed when 100 is posted.
  EXPECT_FALSE(opstest::ProcessHoldsOpen(path));
  std::string got;
  ASSERT_TRUE(opstest::ReadFile(path, &got));
  EXPECT_EQ(got.size(), content.size());
  EXPECT_EQ(opstest::Fnv1a(got), opstest::Fnv1a(content));
  EXPECT_TRUE(got == content);
  // The receiver is gone: further data has nobody to go to.
  Feed(DataAnswer(0, 3, "abc"));
  EXPECT_EQ(Progress().back(), kProgressM3);
}

TEST_F(Download, PositionIsIgnoredDataIsAppendedInArrivalOrder) {
  const std::string path = tmp_.File("order.cfg");
  Ask(path);
  Feed(LengthAnswer(6));
  Feed(DataAnswer(3, 3, "DEF"));
  Feed(DataAnswer(0, 3, "ABC"));
  std::string got;
  ASSERT_TRUE(opstest::ReadFile(path, &got));
  EXPECT_EQ(got, "DEFABC");
  EXPECT_EQ(Progress().back(), kProgress100);
}

TEST_F(Download, DataAnswerReceivedFromTheSocketIsWrittenWhole) {
  const std::string path = tmp_.File("sock.cfg");
  const std::string content = opstest::PatternBytes(200000, 5);
  Ask(path);
  Feed(LengthAnswer(static_cast<long>(content.size())));
  std::string payload = DataAnswer(0, static_cast<long>(content.size()), content);
  std::string frame("\x07\x03\x18\x20", 4);
  uint32_t len = static_cast<uint32_t>(payload.size());
  for (int i = 0; i < 4; ++i) frame.push_back(static_cast<char>(len >> (8 * i)));
  frame += payload;
  std::thread writer([&] {
    size_t off = 0;
    while (off < frame.size()) {
      ssize_t n = write(fds_[1], frame.data() + off, frame.size() - off);
      if (n <= 0) break;
      off += static_cast<size_t>(n);
    }
  });
  EXPECT_EQ(0, dev_->ReceiveData());
  writer.join();
  EXPECT_EQ(Progress(), (std::vector<std::string>{kProgress0, kProgress100}));
  std::string got;
  ASSERT_TRUE(opstest::ReadFile(path, &got));
  EXPECT_TRUE(got == content);
}

TEST_F(Download, TwoLengthAnswersMakeOneReceiver) {
  const std::string path = tmp_.File("twice.cfg");
  Ask(path);
  Feed(LengthAnswer(8));
  Feed(DataAnswer(0, 4, "1234"));
  Feed(LengthAnswer(20));  // neither restarts nor changes the length
  EXPECT_EQ(Progress(), std::vector<std::string>{kProgress0});
  Feed(DataAnswer(4, 4, "5678"));
  EXPECT_EQ(Progress(), (std::vector<std::string>{kProgress0, kProgress100}));
  std::string got;
  ASSERT_TRUE(opstest::ReadFile(path, &got));
  EXPECT_EQ(got, "12345678");
}

TEST_F(Download, AnnouncedZeroNeverFinishesThenAnEmptyDataAnswerCloses) {
  const std::string path = tmp_.File("zero.cfg");
  Ask(path);
  Feed(LengthAnswer(0));
  EXPECT_EQ(Progress(), std::vector<std::string>{kProgress0});
  EXPECT_TRUE(opstest::ProcessHoldsOpen(path));
  Feed(DataAnswer(0, 5, "hello"));
  Feed(DataAnswer(5, 2, "!!"));
  EXPECT_EQ(Progress().size(), 1u);  // the count never equals the announced 0
  Feed(DataAnswer(7, 0, ""));
  EXPECT_EQ(Progress(), (std::vector<std::string>{kProgress0, kProgressM2}));
  EXPECT_FALSE(opstest::ProcessHoldsOpen(path));
  std::string got;
  ASSERT_TRUE(opstest::ReadFile(path, &got));
  EXPECT_EQ(got, "hello!!");  // what arrived is kept
  // No receiver any more.
  Feed(DataAnswer(0, 1, "x"));
  EXPECT_EQ(Progress().back(), kProgressM3);
}

TEST_F(Download, AnnouncedZeroAndNoDataAtAllClosesWithMinus2) {
  const std::string path = tmp_.File("zero2.cfg");
  Ask(path);
  Feed(LengthAnswer(0));
  Feed(DataAnswer(0, 0, ""));
  EXPECT_EQ(Progress(), (std::vector<std::string>{kProgress0, kProgressM2}));
  EXPECT_FALSE(opstest::ProcessHoldsOpen(path));
  EXPECT_TRUE(opstest::FileExists(path));
}

TEST_F(Download, DataAnswerWithoutALengthElementCountsAsEmpty) {
  const std::string path = tmp_.File("nolen.cfg");
  Ask(path);
  Feed(LengthAnswer(4));
  Feed(Answer("20000", "20007", "0", "<body><startPos>0</startPos></body>") + std::string(4, '\0') + "abcd");
  EXPECT_EQ(Progress(), (std::vector<std::string>{kProgress0, kProgressM2}));
}

TEST_F(Download, MoreDataThanAnnouncedNeverReaches100) {
  const std::string path = tmp_.File("more.cfg");
  Ask(path);
  Feed(LengthAnswer(10));
  Feed(DataAnswer(0, 6, "AAAAAA"));
  Feed(DataAnswer(6, 6, "BBBBBB"));  // 12 > 10
  Feed(DataAnswer(12, 6, "CCCCCC"));
  EXPECT_EQ(Progress(), std::vector<std::string>{kProgress0});
  EXPECT_TRUE(opstest::ProcessHoldsOpen(path));  // the transfer stays open
  std::string got;
  ASSERT_TRUE(opstest::ReadFile(path, &got));
  EXPECT_EQ(got, "AAAAAABBBBBBCCCCCC");
  Feed(DataAnswer(18, 0, ""));
  EXPECT_EQ(Progress().back(), kProgressM2);
}

TEST_F(Download, NonZeroSeparatorIsMinus1AndKeepsTheReceiver) {
  const std::string path = tmp_.File("sep.cfg");
  Ask(path);
  Feed(LengthAnswer(4));
  for (int bad = 1; bad <= 3; ++bad) {
    std::string m = DataAnswer(0, 4, "WXYZ");
    size_t textLen = std::strlen(m.c_str());
    m[textLen + bad] = '\x01';
    Feed(m);
    ASSERT_EQ(Progress().size(), static_cast<size_t>(bad) + 1);
    EXPECT_EQ(Progress().back(), kProgressM1);
  }
  std::string got;
  ASSERT_TRUE(opstest::ReadFile(path, &got));
  EXPECT_EQ(got, "");  // nothing of those answers was written
  Feed(DataAnswer(0, 4, "abcd"));
  EXPECT_EQ(Progress().back(), kProgress100);
  ASSERT_TRUE(opstest::ReadFile(path, &got));
  EXPECT_EQ(got, "abcd");
}

TEST_F(Download, NonZeroSeparatorWithoutReceiverIsStillMinus1) {
  std::string m = DataAnswer(0, 2, "zz");
  m[std::strlen(m.c_str()) + 2] = '\x7f';
  Feed(m);
  EXPECT_EQ(Progress(), std::vector<std::string>{kProgressM1});
}

TEST_F(Download, DataWithoutAReceiverIsMinus3) {
  Feed(DataAnswer(0, 5, "12345"));
  EXPECT_EQ(Progress(), std::vector<std::string>{kProgressM3});
  // An empty data answer without a receiver says nothing.
  Feed(DataAnswer(0, 0, ""));
  EXPECT_EQ(Progress(), std::vector<std::string>{kProgressM3});
}

TEST_F(Download, UnreadableLengthAnswerIsIgnored) {
  const std::string path = tmp_.File("ignored.cfg");
  Ask(path);
  Feed(Answer("20000", "20006", "0", "<body><other>5</other></body>"));
  Feed(Answer("20000", "20006", "0", ""));
  EXPECT_TRUE(Progress().empty());
  EXPECT_FALSE(opstest::FileExists(path));
  Feed(DataAnswer(0, 1, "q"));
  EXPECT_EQ(Progress(), std::vector<std::string>{kProgressM3});
}

TEST_F(Download, OutputThatCannotBeCreatedStillEndsWith100AndLeavesNoFile) {
  const std::string path = tmp_.File("missing-dir/dev.cfg");
  Ask(path);
  Feed(LengthAnswer(6));
  EXPECT_EQ(Progress(), std::vector<std::string>{kProgress0});
  Feed(DataAnswer(0, 3, "abc"));
  Feed(DataAnswer(3, 3, "def"));
  EXPECT_EQ(Progress(), (std::vector<std::string>{kProgress0, kProgress100}));
  EXPECT_FALSE(opstest::FileExists(path));
  EXPECT_FALSE(opstest::FileExists(tmp_.File("missing-dir")));
}

TEST_F(Download, ANewRequestWhileReceivingOnlyChangesTheStoredName) {
  const std::string first = tmp_.File("first.cfg"), second = tmp_.File("second.cfg");
  Ask(first);
  Feed(LengthAnswer(4));
  Feed(DataAnswer(0, 2, "ab"));
  Ask(second);
  Feed(DataAnswer(2, 2, "cd"));
  EXPECT_EQ(Progress().back(), kProgress100);
  std::string got;
  ASSERT_TRUE(opstest::ReadFile(first, &got));
  EXPECT_EQ(got, "abcd");
  EXPECT_FALSE(opstest::FileExists(second));
  // The next download goes to the new name.
  Feed(LengthAnswer(1));
  Feed(DataAnswer(0, 1, "z"));
  ASSERT_TRUE(opstest::ReadFile(second, &got));
  EXPECT_EQ(got, "z");
}

TEST_F(Download, EveryAnswerAlsoReachesTheAuxiliaryCallback) {
  const std::string path = tmp_.File("aux.cfg");
  Ask(path);
  Feed(LengthAnswer(2));
  Feed(DataAnswer(0, 2, "ok"));
  auto aux = Capture::Get().Auxes();
  ASSERT_EQ(aux.size(), 2u);
  EXPECT_EQ(aux[0].code, 20006);
  EXPECT_EQ(aux[0].body, "<fileLength>2</fileLength>");
  EXPECT_EQ(aux[1].code, 20007);
}

TEST_F(Download, SessionDeletedMidTransferClosesTheFile) {
  const std::string path = tmp_.File("cut.cfg");
  Ask(path);
  Feed(LengthAnswer(100));
  Feed(DataAnswer(0, 10, "0123456789"));
  EXPECT_TRUE(opstest::ProcessHoldsOpen(path));
  dev_->StopForTest();
  delete dev_;
  dev_ = nullptr;
  EXPECT_FALSE(opstest::ProcessHoldsOpen(path));
  std::string got;
  ASSERT_TRUE(opstest::ReadFile(path, &got));
  EXPECT_EQ(got, "0123456789");
}

TEST_F(Download, NullPathIsRefusedAndNothingIsQueued) {
  EXPECT_LT(dev_->GetConfigFile(nullptr), 0);
  EXPECT_EQ(dev_->QueuedCount(), 0);
}

}  // namespace
