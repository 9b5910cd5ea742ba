// Replays the fuzz seed corpus, and deterministic mutations of it, through every reader
// with fenced outputs and the properties of each result (fuzz/xml/XmlReaderChecks.h).
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "XmlReaderChecks.h"

namespace {

std::vector<std::string> LoadCorpus(const std::string& dir) {
  std::vector<std::string> files;
  DIR* d = opendir(dir.c_str());
  if (!d) return files;
  std::vector<std::string> names;
  while (dirent* e = readdir(d)) {
    std::string path = dir + "/" + e->d_name;
    struct stat st;
    if (e->d_name[0] != '.' && stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) names.push_back(path);
  }
  closedir(d);
  std::sort(names.begin(), names.end());
  for (const std::string& path : names) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    files.push_back(ss.str());
  }
  return files;
}

std::vector<std::string>* g_failures = nullptr;

void RecordFailure(const char* reader, const char* what, const std::string& input) {
  if (g_failures && g_failures->size() < 20)
    g_failures->push_back(std::string(reader) + ": " + what + " on [" + input.substr(0, 300) + "]");
}

class CorpusReplay : public ::testing::Test {
 protected:
  void SetUp() override {
    m_corpus = LoadCorpus(QXNET_XML_CORPUS_DIR "/messages");
    g_failures = &m_failures;
    xmlcheck::Failure() = RecordFailure;
  }
  void TearDown() override {
    xmlcheck::Failure() = nullptr;
    g_failures = nullptr;
  }
  void RunAll(const std::string& input) {
    for (const xmlcheck::Reader& r : xmlcheck::AllReaders()) r.run(input);
  }
  std::vector<std::string> m_corpus;
  std::vector<std::string> m_failures;
};

TEST_F(CorpusReplay, SeedsThroughEveryReader) {
  ASSERT_GE(m_corpus.size(), 20u) << "seed corpus missing under " QXNET_XML_CORPUS_DIR;
  for (const std::string& input : m_corpus) RunAll(input);
  for (const std::string& f : m_failures) ADD_FAILURE() << f;
}

TEST_F(CorpusReplay, SeedsReadAsExpected) {
  // The seeds are real-looking messages: most of them must get through their reader.
  int headers = 0;
  for (const std::string& input : m_corpus) {
    char t[64], c[64], r[64];
    if (GetMessageHeader(input.c_str(), t, sizeof(t), c, sizeof(c), r, sizeof(r)) == 0) ++headers;
  }
  EXPECT_GE(headers, 10);
}

TEST_F(CorpusReplay, MutationsThroughEveryReader) {
  ASSERT_FALSE(m_corpus.empty());
  static const char* const kTokens[] = {"<", ">", "/>", "</", "<body>", "</body>", "<body/>", "\"0\"\"",
                                        "ALARM_REPORT_MESSAGE", "<MESSAGE_BODY></MESSAGE_BODY>", "<PrivateProto>",
                                        "</PrivateProto>", "<PRIVATE_PROTO>", "</PRIVATE_PROTO>", "&#x", ";", "&amp;",
                                        "<![CDATA[", "]]>", "<!--", "-->", "\xf0", "\xef\xbb\xbf", "'", "\"", "=",
                                        "<a>", "</a>", "<dataLen>", "</dataLen>", "<ALARM_ITEM>", "Alarm_data=\""};
  std::mt19937 rng(4242);
  const int kInputs = 4000;
  for (int i = 0; i < kInputs; ++i) {
    std::string s = m_corpus[rng() % m_corpus.size()];
    int muts = 1 + static_cast<int>(rng() % 6);
    for (int m = 0; m < muts; ++m) {
      size_t pos = rng() % (s.size() + 1);
      switch (rng() % 6) {
        case 0:
          if (pos < s.size()) s[pos] = static_cast<char>(rng() & 0xff);
          break;
        case 1:
          s.insert(pos, kTokens[rng() % (sizeof(kTokens) / sizeof(kTokens[0]))]);
          break;
        case 2:
          if (pos < s.size()) s.erase(pos, 1 + rng() % 16);
          break;
        case 3:
          s.insert(pos, s.substr(rng() % (s.size() + 1), rng() % 64));
          break;
        case 4:
          s.resize(pos);
          break;
        default: {
          // Repeat an opening tag to nest deeper.
          std::string tag = kTokens[rng() % 2 ? 26 : 30];
          for (int k = static_cast<int>(rng() % 200); k > 0; --k) s.insert(pos, tag);
        }
      }
    }
    RunAll(s);
    if (m_failures.size() >= 20) break;
  }
  for (const std::string& f : m_failures) ADD_FAILURE() << f;
}

}  // namespace
