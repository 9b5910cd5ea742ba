// Firmware and configuration-file upload on a session without a worker: the test sends
// the queued announce, injects the device's answer and drives the streaming steps itself,
// while the device end of the socket pair is read on its own thread.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "ops/ops_harness.h"
#include "sdk/NetSDKFunc.h"
#include "sdk/QXNetSDKInternal.h"
#include "session/capture.h"

using opstest::Answer;
using opstest::ChunkHeader;
using opstest::LongPath;
using opstest::OpenFailedText;
using opstest::Request;
using qxtest::Capture;
using qxtest::Event;

namespace {

const long kChunk = 163840;

enum class Kind { Firmware, Config };

struct KindCodes {
  int announceCmd, chunkCmd, progress, finished, failed, fileType;
  const char* lengthTag;
};

KindCodes CodesOf(Kind k) {
  if (k == Kind::Firmware) return {20001, 20002, 58, 15, 16, 1, "firmwareLength"};
  return {20004, 20005, 82, 83, 81, -1, "fileLength"};
}

std::string ProgressText(long start, long size, const std::string& path) {
  return "<upload start=\"" + std::to_string(start) + "\" filesize=\"" + std::to_string(size) + "\" filename=\"" +
         path + "\" />";
}

std::string FinishedText(int fileType, const std::string& path) {
  return "<RESPONSE_PARAM\nFileType=\"" + std::to_string(fileType) + "\"\nFileName=\"" + path +
         "\"\nStartPos=\"0\"\nErrorCode=\"0\"  \n/>";
}

std::string EndFailedText(int fileType, const std::string& path) {
  return "<RESPONSE_PARAM\nFileType=\"" + std::to_string(fileType) + "\"\nFileName=\"" + path +
         "\"\nStartPos=\"0\"\nErrorCode=\"-3\" errormsg=\"send upload file failed\" \n/>";
}

std::vector<Event> StatusEvents() {
  std::vector<Event> out;
  for (const Event& e : Capture::Get().Events())
    if (e.code != QXNET_EV_SOCKET_ERROR) out.push_back(e);
  return out;
}

class Upload : public opstest::SessionTest {
 protected:
  int Start(Kind k, const std::string& path) {
    return k == Kind::Firmware ? dev_->UploadFile(1, path.c_str()) : dev_->SetConfigFile(path.c_str());
  }
  // Starts an upload of `path`, sends its announce and lets the device accept it.
  void StartAndAccept(Kind k, const std::string& path, long length) {
    KindCodes c = CodesOf(k);
    size_t before = peer_->Count();
    ASSERT_EQ(0, Start(k, path));
    ASSERT_TRUE(Flush(before + 1));
    ASSERT_EQ(peer_->Payload(before),
              Request("20000", std::to_string(c.announceCmd), "0",
                      std::string("<") + c.lengthTag + ">" + std::to_string(length) + "</" + c.lengthTag + ">"));
    Feed(Answer("20000", std::to_string(c.announceCmd), "0", "<body></body>"));
    ASSERT_TRUE(dev_->UploadDue());
  }
  // Checks one chunk frame and returns its data.
  static std::string ChunkData(const std::string& payload, int cmd, long startPos, long dataLength) {
    std::string header = ChunkHeader(cmd, startPos, dataLength);
    EXPECT_GE(payload.size(), header.size() + 4);
    if (payload.size() < header.size() + 4) return std::string();
    EXPECT_EQ(payload.substr(0, header.size()), header);
    EXPECT_EQ(payload.substr(header.size(), 4), std::string(4, '\0'));
    std::string data = payload.substr(header.size() + 4);
    EXPECT_EQ(static_cast<long>(data.size()), dataLength);
    return data;
  }
  opstest::TempDir tmp_;
};

// ---- the size matrix, for both kinds

struct SizeCase {
  Kind kind;
  long size;
};

class UploadSizes : public Upload, public ::testing::WithParamInterface<SizeCase> {};

TEST_P(UploadSizes, StreamsTheFileInChunksAndReportsEachStep) {
  const Kind kind = GetParam().kind;
  const long size = GetParam().size;
  const KindCodes c = CodesOf(kind);
  const std::string path = tmp_.File("upload.bin");
  const std::string content = opstest::PatternBytes(static_cast<size_t>(size), static_cast<uint32_t>(size) + 7);
  ASSERT_TRUE(opstest::WriteFile(path, content));

  EXPECT_EQ(dev_->GetUploadState(), -1);  // idle before anything
  EXPECT_EQ(dev_->GetUploadProgress(), 0);
  ASSERT_EQ(0, Start(kind, path));
  // Announced, not yet accepted.
  EXPECT_EQ(dev_->GetUploadState(), 0);
  EXPECT_EQ(dev_->GetUploadProgress(), 0);
  EXPECT_FALSE(dev_->UploadDue());
  dev_->SendUploadFileData();  // nothing is streamed before the device accepts
  ASSERT_TRUE(Flush(1));
  EXPECT_EQ(peer_->Payload(0), Request("20000", std::to_string(c.announceCmd), "0",
                                       std::string("<") + c.lengthTag + ">" + std::to_string(size) + "</" +
                                           c.lengthTag + ">"));
  Feed(Answer("20000", std::to_string(c.announceCmd), "0", "<body></body>"));
  ASSERT_TRUE(dev_->UploadDue());
  EXPECT_EQ(dev_->GetUploadProgress(), 0);

  const long full = size / kChunk;
  const long rest = size % kChunk;
  const long frames = full + (rest ? 1 : 0) + 1;  // chunks and the end header
  long sentFrames = 0;
  int calls = 0;
  while (dev_->UploadDue()) {
    ASSERT_LT(calls, 1000);
    dev_->SendUploadFileData();
    ++calls;
    sentFrames = std::min<long>(frames, sentFrames + 5);
    if (dev_->UploadDue()) {
      // Still running: progress is the share of whole chunks sent so far.
      long bytes = std::min<long>(sentFrames, full) * kChunk;
      if (sentFrames > full) bytes += rest;
      EXPECT_EQ(dev_->GetUploadProgress(), static_cast<int>(static_cast<double>(bytes) * 100.0 / size));
      EXPECT_EQ(dev_->GetUploadState(), 0);
    }
  }
  EXPECT_EQ(calls, static_cast<int>((frames + 4) / 5));
  ASSERT_TRUE(peer_->WaitFrames(static_cast<size_t>(1 + frames), 10000));

  // Every frame: header byte for byte, four zero bytes, the data.
  auto payloads = peer_->Payloads();
  ASSERT_EQ(payloads.size(), static_cast<size_t>(1 + frames));
  std::string reassembled;
  for (long i = 0; i < full; ++i) reassembled += ChunkData(payloads[1 + i], c.chunkCmd, i * kChunk, kChunk);
  if (rest) reassembled += ChunkData(payloads[1 + full], c.chunkCmd, full * kChunk, rest);
  EXPECT_EQ(payloads.back(), ChunkHeader(c.chunkCmd, size, 0) + std::string(4, '\0'));
  EXPECT_EQ(reassembled.size(), content.size());
  EXPECT_EQ(opstest::Fnv1a(reassembled), opstest::Fnv1a(content));
  EXPECT_TRUE(reassembled == content);

  // One progress event per full chunk, then the finished event; nothing else.
  auto ev = StatusEvents();
  ASSERT_EQ(ev.size(), static_cast<size_t>(full + 1));
  for (long i = 0; i < full; ++i) {
    EXPECT_EQ(ev[i].code, c.progress);
    EXPECT_EQ(ev[i].text, ProgressText((i + 1) * kChunk, size, path));
    EXPECT_EQ(ev[i].loginId, reinterpret_cast<long>(dev_));
  }
  EXPECT_EQ(ev.back().code, c.finished);
  EXPECT_EQ(ev.back().text, FinishedText(c.fileType, path));
  EXPECT_EQ(Capture::Get().CountLogs("[SendUploadFileData] send upload file success \n"), 1);

  // Over: idle again, nothing more goes out, a new upload may start.
  EXPECT_FALSE(dev_->UploadDue());
  EXPECT_EQ(dev_->GetUploadProgress(), 0);
  EXPECT_EQ(dev_->GetUploadState(), -1);
  dev_->SendUploadFileData();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(peer_->Count(), static_cast<size_t>(1 + frames));
  EXPECT_EQ(StatusEvents().size(), static_cast<size_t>(full + 1));
  EXPECT_EQ(0, Start(kind, path));
}

std::string SizeCaseName(const ::testing::TestParamInfo<SizeCase>& info) {
  return std::string(info.param.kind == Kind::Firmware ? "Firmware" : "Config") + "_" +
         std::to_string(info.param.size);
}

INSTANTIATE_TEST_SUITE_P(Sizes, UploadSizes,
                         ::testing::Values(SizeCase{Kind::Firmware, 0}, SizeCase{Kind::Firmware, 1},
                                           SizeCase{Kind::Firmware, 163839}, SizeCase{Kind::Firmware, 163840},
                                           SizeCase{Kind::Firmware, 163841}, SizeCase{Kind::Firmware, 5 << 20},
                                           SizeCase{Kind::Config, 0}, SizeCase{Kind::Config, 1},
                                           SizeCase{Kind::Config, 163839}, SizeCase{Kind::Config, 163840},
                                           SizeCase{Kind::Config, 163841}, SizeCase{Kind::Config, 5 << 20}),
                         SizeCaseName);

// ---- edge cases

TEST_F(Upload, EmptyFileEndsAtOnceWithTheEndHeader) {
  const std::string path = tmp_.File("empty.cfg");
  ASSERT_TRUE(opstest::WriteFile(path, ""));
  StartAndAccept(Kind::Firmware, path, 0);
  dev_->SendUploadFileData();
  ASSERT_TRUE(peer_->WaitFrames(2, 5000));
  EXPECT_EQ(peer_->Payload(1), ChunkHeader(20002, 0, 0) + std::string(4, '\0'));
  auto ev = StatusEvents();
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].code, 15);
  EXPECT_FALSE(dev_->UploadDue());
}

TEST_F(Upload, ExactlyOneChunkGivesOneProgressAndThenTheEndHeader) {
  const std::string path = tmp_.File("one.cfg");
  ASSERT_TRUE(opstest::WriteFile(path, opstest::PatternBytes(kChunk, 3)));
  StartAndAccept(Kind::Config, path, kChunk);
  dev_->SendUploadFileData();
  ASSERT_TRUE(peer_->WaitFrames(3, 5000));
  EXPECT_EQ(peer_->Payload(2), ChunkHeader(20005, kChunk, 0) + std::string(4, '\0'));
  auto ev = StatusEvents();
  ASSERT_EQ(ev.size(), 2u);
  EXPECT_EQ(ev[0].code, 82);
  EXPECT_EQ(ev[1].code, 83);
}

TEST_F(Upload, FiveChunksAtMostPerStep) {
  const std::string path = tmp_.File("seven.bin");
  ASSERT_TRUE(opstest::WriteFile(path, opstest::PatternBytes(7 * kChunk, 9)));
  StartAndAccept(Kind::Firmware, path, 7 * kChunk);
  dev_->SendUploadFileData();
  ASSERT_TRUE(peer_->WaitFrames(6, 5000));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(peer_->Count(), 6u);
  EXPECT_EQ(Capture::Get().CountEvents(58), 5);
  EXPECT_EQ(dev_->GetUploadProgress(), 71);  // 5 of 7 chunks: 71.4 truncated
  dev_->SendUploadFileData();
  ASSERT_TRUE(peer_->WaitFrames(9, 5000));
  EXPECT_EQ(Capture::Get().CountEvents(58), 7);
  EXPECT_EQ(Capture::Get().CountEvents(15), 1);
}

TEST_F(Upload, SecondUploadWhileAnnouncedIsBusy) {
  const std::string a = tmp_.File("a.bin"), b = tmp_.File("b.bin");
  ASSERT_TRUE(opstest::WriteFile(a, "aaaa"));
  ASSERT_TRUE(opstest::WriteFile(b, "bbbb"));
  ASSERT_EQ(0, dev_->UploadFile(1, a.c_str()));
  EXPECT_EQ(QXNET_E_BUSY, dev_->UploadFile(1, b.c_str()));
  EXPECT_EQ(QXNET_E_BUSY, dev_->SetConfigFile(b.c_str()));
  std::wstring wb(b.begin(), b.end());
  EXPECT_EQ(QXNET_E_BUSY, dev_->UploadFileEx(1, wb.c_str()));
  EXPECT_EQ(dev_->QueuedCount(), 1);
  EXPECT_EQ(Capture::Get().CountLogs("[UploadFile]just now is uploading file " + a + ", new file can't be upload \n", 0),
            2);
  EXPECT_EQ(Capture::Get().CountLogs("[UploadFileEx]just now is uploading file " + a +
                                     ", new file can't be upload \n", 0),
            1);
}

TEST_F(Upload, SecondUploadWhileStreamingIsBusyAndTheFirstCarriesOn) {
  const std::string a = tmp_.File("a.bin"), b = tmp_.File("b.cfg");
  const std::string content = opstest::PatternBytes(3 * kChunk + 10, 1);
  ASSERT_TRUE(opstest::WriteFile(a, content));
  ASSERT_TRUE(opstest::WriteFile(b, "b"));
  StartAndAccept(Kind::Config, a, static_cast<long>(content.size()));
  EXPECT_EQ(QXNET_E_BUSY, dev_->SetConfigFile(b.c_str()));
  EXPECT_EQ(QXNET_E_BUSY, dev_->UploadFile(1, b.c_str()));
  EXPECT_EQ(dev_->QueuedCount(), 0);
  dev_->SendUploadFileData();
  ASSERT_TRUE(peer_->WaitFrames(6, 5000));
  EXPECT_EQ(Capture::Get().CountEvents(83), 1);
  EXPECT_EQ(peer_->Payload(5), ChunkHeader(20005, static_cast<long>(content.size()), 0) + std::string(4, '\0'));
}

TEST_F(Upload, MissingFileIsRefusedWithMinus93) {
  const std::string missing = tmp_.File("nope.bin");
  EXPECT_EQ(QXNET_E_FILE, dev_->UploadFile(1, missing.c_str()));
  EXPECT_EQ(QXNET_E_FILE, dev_->SetConfigFile(missing.c_str()));
  std::wstring w(missing.begin(), missing.end());
  EXPECT_EQ(QXNET_E_FILE, dev_->UploadFileEx(1, w.c_str()));
  EXPECT_EQ(dev_->QueuedCount(), 0);
  EXPECT_EQ(Capture::Get().CountLogs("[UploadFile] Open file " + missing + " failed \n", 0), 2);
  EXPECT_EQ(Capture::Get().CountLogs("[UploadFileEx] Open file " + missing + " failed \n", 0), 1);
  // Still idle: a readable file may be sent next.
  EXPECT_EQ(dev_->GetUploadState(), -1);
  const std::string ok = tmp_.File("ok.bin");
  ASSERT_TRUE(opstest::WriteFile(ok, "x"));
  EXPECT_EQ(0, dev_->UploadFile(1, ok.c_str()));
}

TEST_F(Upload, UnopenableFileIsRefusedWithMinus93) {
  const std::string plain = tmp_.File("plain");
  ASSERT_TRUE(opstest::WriteFile(plain, "x"));
  const std::string underFile = plain + "/inner.bin";  // a path through a regular file
  const std::string dangling = tmp_.File("dangling.bin");
  ASSERT_EQ(0, symlink(tmp_.File("gone").c_str(), dangling.c_str()));
  EXPECT_EQ(QXNET_E_FILE, dev_->UploadFile(1, underFile.c_str()));
  EXPECT_EQ(QXNET_E_FILE, dev_->SetConfigFile(dangling.c_str()));
  if (geteuid() != 0) {  // permissions do not stop the superuser
    const std::string locked = tmp_.File("locked.bin");
    ASSERT_TRUE(opstest::WriteFile(locked, "x"));
    ASSERT_EQ(0, chmod(locked.c_str(), 0));
    EXPECT_EQ(QXNET_E_FILE, dev_->UploadFile(1, locked.c_str()));
  }
  EXPECT_EQ(dev_->QueuedCount(), 0);
  EXPECT_EQ(dev_->GetUploadState(), -1);
}

TEST_F(Upload, NullPathIsRefused) {
  EXPECT_EQ(QXNET_E_FILE, dev_->UploadFile(1, nullptr));
  EXPECT_EQ(QXNET_E_FILE, dev_->SetConfigFile(nullptr));
  EXPECT_EQ(QXNET_E_FILE, dev_->UploadFileEx(1, nullptr));
  EXPECT_EQ(dev_->QueuedCount(), 0);
}

TEST_F(Upload, PathOf512CharactersIsRefusedAnd511Accepted) {
  const std::string p512 = LongPath(tmp_.path(), 512);
  ASSERT_EQ(p512.size(), 512u);
  ASSERT_TRUE(opstest::WriteFile(p512, "long"));
  EXPECT_LT(dev_->UploadFile(1, p512.c_str()), 0);
  EXPECT_LT(dev_->SetConfigFile(p512.c_str()), 0);
  std::wstring w512(p512.begin(), p512.end());
  EXPECT_LT(dev_->UploadFileEx(1, w512.c_str()), 0);
  EXPECT_EQ(dev_->QueuedCount(), 0);
  EXPECT_EQ(dev_->GetUploadState(), -1);

  const std::string p511 = LongPath(tmp_.path(), 511);
  ASSERT_EQ(p511.size(), 511u);
  ASSERT_TRUE(opstest::WriteFile(p511, "long!"));
  StartAndAccept(Kind::Config, p511, 5);
  dev_->SendUploadFileData();
  ASSERT_TRUE(peer_->WaitFrames(3, 5000));
  EXPECT_EQ(ChunkData(peer_->Payload(1), 20005, 0, 5), "long!");
  auto ev = StatusEvents();
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].text, FinishedText(-1, p511));
}

TEST_F(Upload, WidePathUploadsAsFirmwareAndPrintsTheWidePath) {
  const std::string path = tmp_.File("wide-\xc3\xa9t\xc3\xa9.bin");  // UTF-8 "wide-été.bin"
  const std::string content = opstest::PatternBytes(kChunk + 3, 5);
  ASSERT_TRUE(opstest::WriteFile(path, content));
  std::wstring w = std::wstring(tmp_.path().begin(), tmp_.path().end()) + L"/wide-\u00e9t\u00e9.bin";
  ASSERT_EQ(0, dev_->UploadFileEx(5, w.c_str()));
  ASSERT_TRUE(Flush(1));
  EXPECT_EQ(peer_->Payload(0), Request("20000", "20001", "0", "<firmwareLength>" +
                                                                   std::to_string(content.size()) +
                                                                   "</firmwareLength>"));
  Feed(Answer("20000", "20001", "0", "<body></body>"));
  dev_->SendUploadFileData();
  ASSERT_TRUE(peer_->WaitFrames(4, 5000));
  std::string got = ChunkData(peer_->Payload(1), 20002, 0, kChunk) + ChunkData(peer_->Payload(2), 20002, kChunk, 3);
  EXPECT_TRUE(got == content);
  auto ev = StatusEvents();
  ASSERT_EQ(ev.size(), 2u);
  EXPECT_EQ(ev[0].text, ProgressText(kChunk, kChunk + 3, path));
  EXPECT_EQ(ev[1].code, 15);
  EXPECT_EQ(ev[1].text, FinishedText(5, path));
}

TEST_F(Upload, LongestWidePathOutsideAsciiIsPrintedWhole) {
  // 511 characters, nearly all of them three bytes long in UTF-8.
  const std::wstring wdir(tmp_.path().begin(), tmp_.path().end());
  std::wstring w = wdir;
  std::string narrow = tmp_.path();
  while (511 - w.size() > 80) {
    w += L"/" + std::wstring(70, L'\u6587');
    narrow += "/";
    for (int i = 0; i < 70; ++i) narrow += "\xe6\x96\x87";
    mkdir(narrow.c_str(), 0700);
  }
  size_t left = 511 - w.size() - 1;
  w += L"/" + std::wstring(left, L'\u4ef6');
  narrow += "/";
  for (size_t i = 0; i < left; ++i) narrow += "\xe4\xbb\xb6";
  ASSERT_EQ(w.size(), 511u);
  ASSERT_GT(narrow.size(), 1400u);
  const std::string content = opstest::PatternBytes(kChunk + 1, 13);
  ASSERT_TRUE(opstest::WriteFile(narrow, content));
  ASSERT_EQ(0, dev_->UploadFileEx(2, w.c_str()));
  ASSERT_TRUE(Flush(1));
  Feed(Answer("20000", "20001", "0", "<body></body>"));
  dev_->SendUploadFileData();
  ASSERT_TRUE(peer_->WaitFrames(4, 5000));
  auto ev = StatusEvents();
  ASSERT_EQ(ev.size(), 2u);
  EXPECT_EQ(ev[0].text, ProgressText(kChunk, kChunk + 1, narrow));
  EXPECT_EQ(ev[1].text, FinishedText(2, narrow));

  // The refusal text carries it whole as well.
  ASSERT_EQ(0, dev_->UploadFileEx(2, w.c_str()));
  ASSERT_TRUE(Flush(5));
  Feed(Answer("20000", "20001", "-1", "<body></body>"));
  ev = StatusEvents();
  ASSERT_EQ(ev.size(), 3u);
  EXPECT_EQ(ev[2].text, OpenFailedText(2, narrow));
}

TEST_F(Upload, RefusedFirmwareIsEvent16WithTheOpenFailureText) {
  const std::string path = tmp_.File("fw.bin");
  ASSERT_TRUE(opstest::WriteFile(path, "firmware"));
  ASSERT_EQ(0, dev_->UploadFile(1, path.c_str()));
  ASSERT_TRUE(Flush(1));
  Feed(Answer("20000", "20001", "-1", "<body><reason>busy</reason></body>"));
  auto ev = StatusEvents();
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].code, 16);
  EXPECT_EQ(ev[0].text, OpenFailedText(1, path));
  EXPECT_EQ(Capture::Get().CountLogs("[OnSysControlMsgRsp] dev= upload file request failed msgflag=-1 \n", 0), 1);
  // The negative answer to 20001 also reaches the application.
  ASSERT_EQ(Capture::Get().Auxes().size(), 1u);
  EXPECT_EQ(Capture::Get().Auxes()[0].body, "<reason>busy</reason>");
  EXPECT_FALSE(dev_->UploadDue());
  EXPECT_EQ(dev_->GetUploadState(), -1);
  EXPECT_EQ(dev_->GetUploadProgress(), 0);
  dev_->SendUploadFileData();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(peer_->Count(), 1u);
  // A late acceptance of the refused request is the cancelled case.
  Feed(Answer("20000", "20001", "0", "<body></body>"));
  EXPECT_FALSE(dev_->UploadDue());
  EXPECT_EQ(Capture::Get().CountLogs("recv upload file response, but the task has been canceled"), 1);
  EXPECT_EQ(0, dev_->UploadFile(1, path.c_str()));
}

TEST_F(Upload, RefusedConfigFileIsEvent81WithTheOpenFailureText) {
  const std::string path = tmp_.File("c.cfg");
  ASSERT_TRUE(opstest::WriteFile(path, "cfg"));
  ASSERT_EQ(0, dev_->SetConfigFile(path.c_str()));
  ASSERT_TRUE(Flush(1));
  Feed(Answer("20000", "20004", "-7", "<body></body>"));
  auto ev = StatusEvents();
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].code, 81);
  EXPECT_EQ(ev[0].text, OpenFailedText(-1, path));
  EXPECT_EQ(Capture::Get().CountLogs("upload file request failed msgflag=-7 \n"), 1);
  EXPECT_EQ(dev_->GetUploadState(), -1);
}

TEST_F(Upload, AcceptedButFileGoneIsTheOpenFailure) {
  const std::string path = tmp_.File("vanish.bin");
  ASSERT_TRUE(opstest::WriteFile(path, "soon gone"));
  ASSERT_EQ(0, dev_->UploadFile(1, path.c_str()));
  ASSERT_TRUE(Flush(1));
  ASSERT_EQ(0, unlink(path.c_str()));
  Feed(Answer("20000", "20001", "0", "<body></body>"));
  auto ev = StatusEvents();
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].code, 16);
  EXPECT_EQ(ev[0].text, OpenFailedText(1, path));
  EXPECT_FALSE(dev_->UploadDue());
  EXPECT_EQ(dev_->GetUploadState(), -1);
}

TEST_F(Upload, CancelQueuesTheFixedTextAndALateAcceptanceSendsNothing) {
  const std::string path = tmp_.File("c.cfg");
  ASSERT_TRUE(opstest::WriteFile(path, opstest::PatternBytes(2 * kChunk, 4)));
  ASSERT_EQ(0, dev_->SetConfigFile(path.c_str()));
  ASSERT_TRUE(Flush(1));
  EXPECT_EQ(0, dev_->CloseUploadHandle());
  EXPECT_EQ(dev_->GetUploadState(), -1);
  ASSERT_TRUE(Flush(2));
  // The same text for both kinds, its leading line breaks counted in the length.
  EXPECT_EQ(peer_->Payload(1), std::string(opstest::kCancelText));
  Feed(Answer("20000", "20004", "0", "<body></body>"));
  EXPECT_EQ(Capture::Get().CountLogs(
                "[OnSysControlMsgRsp] dev= recv upload file response, but the task has been canceled \n", 0),
            1);
  EXPECT_FALSE(dev_->UploadDue());
  dev_->SendUploadFileData();
  dev_->SendOneQueued();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(peer_->Count(), 2u);
  EXPECT_TRUE(StatusEvents().empty());
}

TEST_F(Upload, CancelWhileStreamingStopsTheStream) {
  const std::string path = tmp_.File("big.bin");
  ASSERT_TRUE(opstest::WriteFile(path, opstest::PatternBytes(12 * kChunk, 8)));
  StartAndAccept(Kind::Firmware, path, 12 * kChunk);
  dev_->SendUploadFileData();
  ASSERT_TRUE(peer_->WaitFrames(6, 5000));
  EXPECT_EQ(dev_->GetUploadProgress(), 41);  // 5 of 12
  EXPECT_EQ(0, dev_->CloseUploadHandle());
  EXPECT_FALSE(dev_->UploadDue());
  EXPECT_EQ(dev_->GetUploadProgress(), 0);
  EXPECT_EQ(dev_->GetUploadState(), -1);
  dev_->SendUploadFileData();
  ASSERT_TRUE(Flush(7));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(peer_->Count(), 7u);
  EXPECT_EQ(peer_->Payload(6), std::string(opstest::kCancelText));
  EXPECT_EQ(Capture::Get().CountEvents(58), 5);
  EXPECT_EQ(Capture::Get().CountEvents(15), 0);
  EXPECT_EQ(Capture::Get().CountEvents(16), 0);
  // The session is free again.
  EXPECT_EQ(0, dev_->UploadFile(1, path.c_str()));
}

TEST_F(Upload, CancelFromTheProgressEventStopsAfterThatChunk) {
  const std::string path = tmp_.File("big.cfg");
  ASSERT_TRUE(opstest::WriteFile(path, opstest::PatternBytes(8 * kChunk, 2)));
  StartAndAccept(Kind::Config, path, 8 * kChunk);
  static CDevComControl* s_dev;
  s_dev = dev_;
  static int s_user;
  QXNet_SetStatusEventCallBack(
      [](long, long code, char*, void*) -> long {
        if (code == 82) s_dev->CloseUploadHandle();
        return 0;
      },
      &s_user);
  dev_->SendUploadFileData();
  QXNet_SetStatusEventCallBack(nullptr, &s_user);
  ASSERT_TRUE(Flush(3));
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(peer_->Count(), 3u);  // announce, one chunk, the cancel text
  EXPECT_EQ(peer_->Payload(2), std::string(opstest::kCancelText));
  EXPECT_EQ(Capture::Get().CountEvents(82), 1);
  EXPECT_FALSE(dev_->UploadDue());
}

TEST_F(Upload, FinishedEventFindsTheSessionFreeForTheNextUpload) {
  const std::string a = tmp_.File("a.bin"), b = tmp_.File("b.bin");
  ASSERT_TRUE(opstest::WriteFile(a, "first"));
  ASSERT_TRUE(opstest::WriteFile(b, "second"));
  StartAndAccept(Kind::Firmware, a, 5);
  static CDevComControl* s_dev;
  static std::string s_next;
  static int s_rc, s_user;
  s_dev = dev_;
  s_next = b;
  s_rc = 1;
  QXNet_SetStatusEventCallBack(
      [](long, long code, char*, void*) -> long {
        if (code == 15) s_rc = s_dev->UploadFile(1, s_next.c_str());
        return 0;
      },
      &s_user);
  dev_->SendUploadFileData();
  QXNet_SetStatusEventCallBack(nullptr, &s_user);
  EXPECT_EQ(Capture::Get().CountEvents(15), 1);
  // An application that chains uploads starts the next one from the finished event.
  EXPECT_EQ(s_rc, 0);
  ASSERT_TRUE(Flush(4));
  EXPECT_EQ(peer_->Payload(3), Request("20000", "20001", "0", "<firmwareLength>6</firmwareLength>"));
}

TEST_F(Upload, RefusalEventFindsTheSessionFreeForARetry) {
  const std::string a = tmp_.File("a.cfg");
  ASSERT_TRUE(opstest::WriteFile(a, "cfg"));
  ASSERT_EQ(0, dev_->SetConfigFile(a.c_str()));
  ASSERT_TRUE(Flush(1));
  static CDevComControl* s_dev;
  static std::string s_next;
  static int s_rc, s_user;
  s_dev = dev_;
  s_next = a;
  s_rc = 1;
  QXNet_SetStatusEventCallBack(
      [](long, long code, char*, void*) -> long {
        if (code == 81) s_rc = s_dev->SetConfigFile(s_next.c_str());
        return 0;
      },
      &s_user);
  Feed(Answer("20000", "20004", "-2", "<body></body>"));
  QXNet_SetStatusEventCallBack(nullptr, &s_user);
  EXPECT_EQ(Capture::Get().CountEvents(81), 1);
  EXPECT_EQ(s_rc, 0);
  EXPECT_EQ(dev_->GetUploadState(), 0);  // the retry is announced
  ASSERT_TRUE(Flush(2));
  EXPECT_EQ(peer_->Payload(1), Request("20000", "20004", "0", "<fileLength>3</fileLength>"));
}

class UploadKinds : public Upload, public ::testing::WithParamInterface<Kind> {};

TEST_P(UploadKinds, PeerClosedMidTransferIsEvent81) {
  const Kind kind = GetParam();
  const KindCodes c = CodesOf(kind);
  const std::string path = tmp_.File("mid.bin");
  ASSERT_TRUE(opstest::WriteFile(path, opstest::PatternBytes(9 * kChunk, 6)));
  StartAndAccept(kind, path, 9 * kChunk);
  dev_->SendUploadFileData();
  ASSERT_TRUE(peer_->WaitFrames(6, 5000));
  peer_->Shutdown();
  dev_->SendUploadFileData();
  auto ev = StatusEvents();
  ASSERT_EQ(ev.size(), 6u);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(ev[i].code, c.progress);
  // Reported as 81 whatever the kind: the kind is cleared before the event is chosen.
  EXPECT_EQ(ev[5].code, 81);
  EXPECT_EQ(ev[5].text, "send upload file failed.");
  EXPECT_EQ(Capture::Get().CountLogs("[SendUploadFileData] send upload file data failed, ret="), 1);
  EXPECT_FALSE(dev_->UploadDue());
  EXPECT_EQ(dev_->GetUploadState(), -1);
  EXPECT_EQ(dev_->GetUploadProgress(), 0);
  dev_->SendUploadFileData();
  EXPECT_EQ(StatusEvents().size(), 6u);
}

TEST_P(UploadKinds, PeerClosedBeforeTheLastShortChunkIsEvent81) {
  const Kind kind = GetParam();
  const std::string path = tmp_.File("short.bin");
  ASSERT_TRUE(opstest::WriteFile(path, opstest::PatternBytes(5 * kChunk + 100, 6)));
  StartAndAccept(kind, path, 5 * kChunk + 100);
  dev_->SendUploadFileData();
  ASSERT_TRUE(peer_->WaitFrames(6, 5000));
  peer_->Shutdown();
  dev_->SendUploadFileData();
  auto ev = StatusEvents();
  ASSERT_EQ(ev.size(), 6u);
  EXPECT_EQ(ev[5].code, 81);
  EXPECT_EQ(ev[5].text, "send upload file failed.");
  EXPECT_FALSE(dev_->UploadDue());
}

TEST_P(UploadKinds, PeerClosedBeforeTheEndHeaderIsTheKindsFailure) {
  const Kind kind = GetParam();
  const KindCodes c = CodesOf(kind);
  const std::string path = tmp_.File("end.bin");
  ASSERT_TRUE(opstest::WriteFile(path, ""));
  StartAndAccept(kind, path, 0);
  peer_->Shutdown();
  dev_->SendUploadFileData();
  auto ev = StatusEvents();
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].code, c.failed);
  EXPECT_EQ(ev[0].text, EndFailedText(c.fileType, path));
  EXPECT_EQ(Capture::Get().CountLogs("[SendUploadFileData] send upload file data failed, ret="), 1);
  EXPECT_EQ(Capture::Get().CountLogs("send upload file success"), 0);
  EXPECT_FALSE(dev_->UploadDue());
  EXPECT_EQ(dev_->GetUploadState(), -1);
}

INSTANTIATE_TEST_SUITE_P(Kinds, UploadKinds, ::testing::Values(Kind::Firmware, Kind::Config),
                         [](const ::testing::TestParamInfo<Kind>& i) {
                           return std::string(i.param == Kind::Firmware ? "Firmware" : "Config");
                         });

// ---- application threads against a streaming session

TEST_F(Upload, CancelReturnsPromptlyWhileAChunkSendIsStalled) {
  const std::string path = tmp_.File("stall.bin");
  ASSERT_TRUE(opstest::WriteFile(path, opstest::PatternBytes(10 * kChunk, 11)));
  StartAndAccept(Kind::Firmware, path, 10 * kChunk);
  peer_->Pause();  // the device stops reading: the socket fills and a chunk send stalls
  std::thread streamer([&] { dev_->SendUploadFileData(); });
  std::this_thread::sleep_for(std::chrono::milliseconds(700));
  auto cancelled = std::async(std::launch::async, [&] { return dev_->CloseUploadHandle(); });
  bool prompt = cancelled.wait_for(std::chrono::seconds(2)) == std::future_status::ready;
  EXPECT_TRUE(prompt) << "CloseUploadHandle waited behind a stalled send";
  // Release the stalled send (it waits for the session to stop) and let everything end.
  dev_->StopForTest();
  streamer.join();
  EXPECT_EQ(cancelled.get(), 0);
  EXPECT_FALSE(dev_->UploadDue());
  EXPECT_EQ(dev_->GetUploadState(), -1);
  // The cancelled transfer reports neither completion nor a failure of its own.
  EXPECT_EQ(Capture::Get().CountEvents(15), 0);
  EXPECT_EQ(Capture::Get().CountEvents(16), 0);
  EXPECT_EQ(Capture::Get().CountEvents(81), 0);
  peer_->Resume();
}

TEST_F(Upload, ProgressPolledFromAnotherThreadRisesTo100) {
  const std::string path = tmp_.File("poll.bin");
  const long size = 40 * kChunk;
  ASSERT_TRUE(opstest::WriteFile(path, opstest::PatternBytes(size, 12)));
  StartAndAccept(Kind::Config, path, size);
  std::atomic<bool> done{false};
  std::vector<int> seen;
  std::thread poller([&] {
    while (!done) {
      int p = dev_->GetUploadProgress();
      int s = dev_->GetUploadState();
      if (s == 0 && p > 0) seen.push_back(p);
      std::this_thread::yield();
    }
  });
  while (dev_->UploadDue()) dev_->SendUploadFileData();
  done = true;
  poller.join();
  ASSERT_TRUE(peer_->WaitFrames(42, 10000));
  EXPECT_EQ(Capture::Get().CountEvents(83), 1);
  for (size_t i = 1; i < seen.size(); ++i) EXPECT_LE(seen[i - 1], seen[i]);
  for (int p : seen) EXPECT_LE(p, 100);
}

}  // namespace
