// Request routing from the exports through the core to the session: which session
// method each export reaches, with which arguments (the fixed values that the plain
// forms fill in), and that the session's result comes back unchanged. The session
// methods are wrapped at link time (-Wl,--wrap) so that the test sees each call.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#include "QXNetSDK.h"
#include "sdk/NetSDKFunc.h"
#include "sdk/QXNetSDKInternal.h"
#include "session/DevComControl.h"

namespace {

struct Seen {
  std::string method;
  void* self;
  std::string args;
};
std::vector<Seen> g_seen;
bool g_wrap = false;
int g_result = 0;

std::string Args(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Args(const char* format, ...) {
  char buf[512];
  va_list ap;
  va_start(ap, format);
  std::vsnprintf(buf, sizeof(buf), format, ap);
  va_end(ap);
  return buf;
}

int Record(const char* method, void* self, const std::string& args) {
  g_seen.push_back({method, self, args});
  return g_result;
}

}  // namespace

// One wrapper per session method that the core calls: with g_wrap set it records the call
// and answers g_result, else it hands the call on.
#define WRAP(SYM, PARAMS, ARGS, FMT, ...)                         \
  int __real_##SYM(CDevComControl* self PARAMS);                 \
  int __wrap_##SYM(CDevComControl* self PARAMS) {                \
    if (!g_wrap) return __real_##SYM(self ARGS);                 \
    return Record(#SYM, self, Args(FMT, ##__VA_ARGS__));         \
  }
#define P(...) , __VA_ARGS__

extern "C" {
WRAP(_ZN14CDevComControl12GetDVRConfigEmlPvm, P(unsigned long c, long ch, void* b, unsigned long n),
     P(c, ch, b, n), "%lu %ld %p %lu", c, ch, b, n)
WRAP(_ZN14CDevComControl12SetDVRConfigEmlPvm, P(unsigned long c, long ch, void* b, unsigned long n),
     P(c, ch, b, n), "%lu %ld %p %lu", c, ch, b, n)
WRAP(_ZN14CDevComControl13SystemControlEmmPKc, P(unsigned long c, unsigned long s, const char* p), P(c, s, p),
     "%lu %lu %p[%s]", c, s, static_cast<const void*>(p), p ? p : "null")
WRAP(_ZN14CDevComControl16WriteAUXStringExEPKcmmS1_,
     P(const char* t, unsigned long c, unsigned long r, const char* b), P(t, c, r, b), "%p %lu %lu %p",
     static_cast<const void*>(t), c, r, static_cast<const void*>(b))
WRAP(_ZN14CDevComControl11GetUserDataEPcPi, P(char* b, int* n), P(b, n), "%p %p", static_cast<void*>(b),
     static_cast<void*>(n))
WRAP(_ZN14CDevComControl11SetUserDataEPci, P(char* b, int n), P(b, n), "%p %d", static_cast<void*>(b), n)
WRAP(_ZN14CDevComControl10UploadFileEjPKc, P(unsigned int k, const char* p), P(k, p), "%u %p", k,
     static_cast<const void*>(p))
WRAP(_ZN14CDevComControl12UploadFileExEjPKw, P(unsigned int k, const wchar_t* p), P(k, p), "%u %p", k,
     static_cast<const void*>(p))
WRAP(_ZN14CDevComControl13GetConfigFileEPKc, P(const char* p), P(p), "%p", static_cast<const void*>(p))
WRAP(_ZN14CDevComControl13SetConfigFileEPKc, P(const char* p), P(p), "%p", static_cast<const void*>(p))
WRAP(_ZN14CDevComControl17GetUploadProgressEv, , , "%s", "")
WRAP(_ZN14CDevComControl14GetUploadStateEv, , , "%s", "")
WRAP(_ZN14CDevComControl17CloseUploadHandleEv, , , "%s", "")
WRAP(_ZN14CDevComControl18SearchNVRRecByTimeEjPKc, P(unsigned int ch, const char* t), P(ch, t), "%u %p", ch,
     static_cast<const void*>(t))
WRAP(_ZN14CDevComControl19SearchNvrRecByMonthElPKc, P(long ch, const char* t), P(ch, t), "%ld %p", ch,
     static_cast<const void*>(t))
WRAP(_ZN14CDevComControl15NVRReplayByTimeEjPKc, P(unsigned int ch, const char* t), P(ch, t), "%u %p", ch,
     static_cast<const void*>(t))
WRAP(_ZN14CDevComControl16ControlNVRReplayEjjjPKc, P(unsigned int ch, unsigned int a, unsigned int s, const char* t),
     P(ch, a, s, t), "%u %u %u %p", ch, a, s, static_cast<const void*>(t))
WRAP(_ZN14CDevComControl17NVRRecordDownloadElPKcS1_S1_,
     P(long ch, const char* a, const char* b, const char* c), P(ch, a, b, c), "%ld %p %p %p", ch,
     static_cast<const void*>(a), static_cast<const void*>(b), static_cast<const void*>(c))
WRAP(_ZN14CDevComControl21NVRRecordDownloadStopEl, P(long ch), P(ch), "%ld", ch)
WRAP(_ZN14CDevComControl8LoginDevEPKcjS1_S1_j,
     P(const char* ip, unsigned int port, const char* u, const char* pw, unsigned int x), P(ip, port, u, pw, x),
     "%s %u [%s] [%s] %u", ip ? ip : "null", port, u ? u : "null", pw ? pw : "null", x)
}

namespace {

char* C(const char* s) { return const_cast<char*>(s); }

const char* Short(const std::string& sym) {
  // "_ZN14CDevComControl12GetDVRConfigEmlPvm" -> "GetDVRConfig"
  static std::string out;
  size_t p = std::strlen("_ZN14CDevComControl");
  size_t n = 0;
  while (p < sym.size() && isdigit(static_cast<unsigned char>(sym[p]))) n = n * 10 + (sym[p++] - '0');
  out = sym.substr(p, n);
  return out.c_str();
}

class Routing : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(QXNet_init(), 0);
    id_ = QXNet_LoginDev(C("127.0.0.1"), 8000, C("u"), C("p"), 1);
    ASSERT_NE(id_, 0);
    char tmpl[] = "/tmp/qxnet_sdk_route_XXXXXX";
    int fd = mkstemp(tmpl);
    ASSERT_GE(fd, 0);
    close(fd);
    file_ = tmpl;
    wfile_.assign(file_.begin(), file_.end());
    g_seen.clear();
    g_wrap = true;
  }
  void TearDown() override {
    g_wrap = false;
    QXNet_Free();
    unlink(file_.c_str());
  }
  // Exactly one session call was made, to `method` on this test's session with `args`.
  void ExpectOne(const char* what, const char* method, const std::string& args) {
    ASSERT_EQ(g_seen.size(), 1u) << what;
    EXPECT_STREQ(Short(g_seen[0].method), method) << what;
    EXPECT_EQ(g_seen[0].self, reinterpret_cast<void*>(id_)) << what;
    EXPECT_EQ(g_seen[0].args, args) << what;
    g_seen.clear();
  }
  void ExpectOneLogin(long id, const std::string& args) {
    ASSERT_EQ(g_seen.size(), 1u);
    EXPECT_STREQ(Short(g_seen[0].method), "LoginDev");
    // The session that logged in is the one registered under its own address.
    EXPECT_EQ(g_seen[0].self, reinterpret_cast<void*>(id));
    EXPECT_EQ(g_pInstance->FindDevComById(id, false).get(), g_seen[0].self);
    EXPECT_EQ(g_seen[0].args, args);
    g_seen.clear();
  }
  long id_ = 0;
  std::string file_;
  std::wstring wfile_;
};

TEST_F(Routing, ConfigurationAndControl) {
  char buf[64] = "body";
  unsigned long ret = 0xABCDu;
  int len = 64;
  char text[] = "t";
  g_result = 1234;
  EXPECT_EQ(QXNet_GetDevConfig(id_, 77), 1234);
  ASSERT_EQ(g_seen.size(), 1u);
  // An empty body text, size 0, channel 0.
  void* body = nullptr;
  ASSERT_EQ(std::sscanf(g_seen[0].args.c_str(), "77 0 %p 0", &body), 1) << g_seen[0].args;
  ASSERT_NE(body, nullptr);
  EXPECT_EQ(*static_cast<char*>(body), '\0');
  ExpectOne("GetDevConfig", "GetDVRConfig", Args("77 0 %p 0", body));

  g_result = -5;
  EXPECT_EQ(QXNet_Loc_GetDVRConfig(id_, 77, -2, buf, sizeof(buf), &ret), -5);
  ExpectOne("Loc_GetDVRConfig", "GetDVRConfig", Args("77 -2 %p 64", static_cast<void*>(buf)));
  EXPECT_EQ(ret, 0xABCDu) << "the returned-size pointer is not used";
  EXPECT_EQ(QXNet_Loc_GetDVRConfig(id_, 1, 0, nullptr, 0, nullptr), -5);
  ExpectOne("Loc_GetDVRConfig null", "GetDVRConfig", "1 0 (nil) 0");

  g_result = 0;
  EXPECT_EQ(QXNet_SetDevConfig(id_, 78, buf), 0);
  ExpectOne("SetDevConfig", "SetDVRConfig", Args("78 0 %p 0", static_cast<void*>(buf)));
  EXPECT_EQ(QXNet_Loc_SetDVRConfig(id_, 78, 9, buf, 5), 0);
  ExpectOne("Loc_SetDVRConfig", "SetDVRConfig", Args("78 9 %p 5", static_cast<void*>(buf)));

  g_result = 7;
  EXPECT_EQ(QXNet_SystemControl(id_, 14020, text), 7);
  ExpectOne("SystemControl", "SystemControl", Args("14020 0 %p[t]", static_cast<void*>(text)));
  EXPECT_EQ(QXNet_Loc_SystemControl(id_, 14020, 4, text), 7);
  ExpectOne("Loc_SystemControl", "SystemControl", Args("14020 4 %p[t]", static_cast<void*>(text)));
  EXPECT_EQ(QXNet_Loc_RestoreConfig(id_), 7);
  ASSERT_EQ(g_seen.size(), 1u);
  EXPECT_EQ(g_seen[0].args.substr(0, 8), "14011 0 ");
  EXPECT_EQ(g_seen[0].args.substr(g_seen[0].args.size() - 2), "[]");
  g_seen.clear();
  EXPECT_EQ(QXNet_Loc_RebootDVR(id_), 7);
  ASSERT_EQ(g_seen.size(), 1u);
  EXPECT_STREQ(Short(g_seen[0].method), "SystemControl");
  EXPECT_EQ(g_seen[0].args.substr(0, 8), "14008 0 ");
  EXPECT_EQ(g_seen[0].args.substr(g_seen[0].args.size() - 2), "[]");
  g_seen.clear();

  g_result = -1234567;
  EXPECT_EQ(QXNet_Loc_WriteAUXStringEx(id_, text, 14001, 3, buf), -1234567);
  ExpectOne("WriteAUXStringEx", "WriteAUXStringEx",
            Args("%p 14001 3 %p", static_cast<void*>(text), static_cast<void*>(buf)));
  g_result = 0;
  EXPECT_EQ(QXNet_Loc_GetUserData(id_, buf, &len), 0);
  ExpectOne("GetUserData", "GetUserData", Args("%p %p", static_cast<void*>(buf), static_cast<void*>(&len)));
  EXPECT_EQ(QXNet_Loc_SetUserData(id_, buf, 4), 0);
  ExpectOne("SetUserData", "SetUserData", Args("%p 4", static_cast<void*>(buf)));
}

TEST_F(Routing, UpgradeAndFiles) {
  g_result = -92;
  EXPECT_EQ(QXNet_Loc_Upgrade(id_, file_.c_str()), -92);
  ExpectOne("Upgrade", "UploadFile", Args("1 %p", static_cast<const void*>(file_.c_str())));
  g_result = 0;
  EXPECT_EQ(QXNet_Loc_UpgradeEx(id_, wfile_.c_str()), 0);
  ExpectOne("UpgradeEx", "UploadFileEx", Args("1 %p", static_cast<const void*>(wfile_.c_str())));
  g_result = 42;
  EXPECT_EQ(QXNet_Loc_GetUpgradeProgress(id_), 42);
  ExpectOne("GetUpgradeProgress", "GetUploadProgress", "");
  g_result = -1;
  EXPECT_EQ(QXNet_Loc_GetUpgradeState(id_), -1);
  ExpectOne("GetUpgradeState", "GetUploadState", "");
  g_result = 3;
  EXPECT_EQ(QXNet_Loc_CloseUpgradeHandle(id_), 3);
  ExpectOne("CloseUpgradeHandle", "CloseUploadHandle", "");
  g_result = -93;
  EXPECT_EQ(QXNet_Loc_GetConfigFile(id_, file_.c_str()), -93);
  ExpectOne("GetConfigFile", "GetConfigFile", Args("%p", static_cast<const void*>(file_.c_str())));
  EXPECT_EQ(QXNet_Loc_SetConfigFile(id_, file_.c_str()), -93);
  ExpectOne("SetConfigFile", "SetConfigFile", Args("%p", static_cast<const void*>(file_.c_str())));
}

TEST_F(Routing, Recorder) {
  char t[] = "20240101000000", a[] = "a", b[] = "b", c[] = "c";
  const void* pt = t;
  g_result = 11;
  EXPECT_EQ(QXNet_SearchNVRRecByTime(id_, 3, t), 11);
  ExpectOne("SearchNVRRecByTime", "SearchNVRRecByTime", Args("3 %p", pt));
  EXPECT_EQ(QXNet_Loc_SearchNVRRecByTime(id_, 4, t), 11);
  ExpectOne("Loc_SearchNVRRecByTime", "SearchNVRRecByTime", Args("4 %p", pt));
  g_result = 12;
  EXPECT_EQ(QXNet_NVRRecordDownload(id_, 5, a, b, c), 12);
  ExpectOne("NVRRecordDownload", "NVRRecordDownload",
            Args("5 %p %p %p", static_cast<void*>(a), static_cast<void*>(b), static_cast<void*>(c)));
  EXPECT_EQ(QXNet_Loc_NVRRecordDownload(id_, -6, a, b, c), 12);
  ExpectOne("Loc_NVRRecordDownload", "NVRRecordDownload",
            Args("-6 %p %p %p", static_cast<void*>(a), static_cast<void*>(b), static_cast<void*>(c)));
  g_result = 13;
  EXPECT_EQ(QXNet_Loc_NVRRecordDownloadStop(id_, 7), 13);
  ExpectOne("Loc_NVRRecordDownloadStop", "NVRRecordDownloadStop", "7");
  EXPECT_EQ(QXNet_NVRRecordDownloadStop(id_, 8), 13);
  ExpectOne("NVRRecordDownloadStop", "NVRRecordDownloadStop", "8");
  g_result = 14;
  EXPECT_EQ(QXNet_Loc_NVRReplayByTime(id_, 9, t), 14);
  ExpectOne("Loc_NVRReplayByTime", "NVRReplayByTime", Args("9 %p", pt));
  EXPECT_EQ(QXNet_NVRReplayByTime(id_, 10, t), 14);
  ExpectOne("NVRReplayByTime", "NVRReplayByTime", Args("10 %p", pt));
  g_result = 15;
  EXPECT_EQ(QXNet_Loc_ControlNVRReplay(id_, 1, 6, 2, t), 15);
  ExpectOne("Loc_ControlNVRReplay", "ControlNVRReplay", Args("1 6 2 %p", pt));
  EXPECT_EQ(QXNet_ControlNVRReplay(id_, 2, 3, 1, t), 15);
  ExpectOne("ControlNVRReplay", "ControlNVRReplay", Args("2 3 1 %p", pt));
  g_result = 16;
  EXPECT_EQ(g_pInstance->SDK_SearchNvrRecByMonth(id_, 11, t), 16);
  ExpectOne("SearchNvrRecByMonth", "SearchNvrRecByMonth", Args("11 %p", pt));
}

TEST_F(Routing, UnknownIdentifiersReachNoSession) {
  long unknown = id_ + 8;
  char t[] = "x";
  EXPECT_EQ(QXNet_GetDevConfig(unknown, 1), QXNET_E_NO_DEVICE);
  EXPECT_EQ(QXNet_SystemControl(unknown, 1, t), QXNET_E_NO_DEVICE);
  EXPECT_EQ(QXNet_Loc_Upgrade(unknown, file_.c_str()), QXNET_E_NO_DEVICE);
  EXPECT_EQ(QXNet_Loc_UpgradeEx(unknown, wfile_.c_str()), QXNET_E_NO_DEVICE);
  EXPECT_EQ(QXNet_Loc_ControlNVRReplay(unknown, 1, 1, 1, t), QXNET_E_NO_DEVICE);
  EXPECT_TRUE(g_seen.empty());
}

TEST_F(Routing, LoginHandsItsArgumentsToTheSession) {
  g_result = 0;
  long a = QXNet_Loc_LoginDev(C("10.1.2.3"), 8091, C("admin"), C("secret"), nullptr);
  ASSERT_NE(a, 0);
  ExpectOneLogin(a, "10.1.2.3 8091 [admin] [secret] 1");
  // Null user and password reach the session as empty texts; flag 0 logs in.
  long b = QXNet_LoginDev(C("host"), 1, nullptr, nullptr, 0);
  ASSERT_NE(b, 0);
  ExpectOneLogin(b, "host 1 [] [] 1");
  // A nonzero flag skips the login entirely.
  long c = QXNet_LoginDev(C("host"), 2, C("u"), C("p"), 5);
  EXPECT_NE(c, 0);
  EXPECT_TRUE(g_seen.empty());
  g_wrap = false;
  EXPECT_EQ(QXNet_LogOutDev(a), 0);
  EXPECT_EQ(QXNet_LogOutDev(b), 0);
  EXPECT_EQ(QXNet_LogOutDev(c), 0);
}

TEST_F(Routing, AFailedLoginReturnsTheSessionsCodeAndRegistersNothing) {
  size_t before = g_pInstance->DeviceCount();
  for (int code : {QXNET_E_SPAWN, -1, 3}) {
    g_result = code;
    EXPECT_EQ(QXNet_Loc_LoginDev(C("127.0.0.1"), 8000, C("u"), C("p"), nullptr), code);
    ASSERT_EQ(g_seen.size(), 1u);
    void* session = g_seen[0].self;
    g_seen.clear();
    EXPECT_EQ(g_pInstance->FindDevComById(reinterpret_cast<long>(session), false), nullptr);
    EXPECT_EQ(g_pInstance->DeviceCount(), before);
  }
}

}  // namespace
