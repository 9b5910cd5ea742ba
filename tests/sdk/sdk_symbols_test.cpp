// The export table of the shared library: exactly the 59 QXNet_ functions, nothing else
// defined, and none of the five functions that carry C++ names under any spelling.
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "QXNetSDK.h"
#include "sdk_export_names.h"

#ifndef QXNET_SDK_LIBRARY
#error "QXNET_SDK_LIBRARY must name libQXNetSDK.so"
#endif

namespace {

struct DynSym {
  std::string name;
  bool defined;
  unsigned char type;
  unsigned char bind;
  unsigned char visibility;
};

// Reads the dynamic symbol table (.dynsym with its string table) of a 64-bit ELF file.
bool ReadDynamicSymbols(const char* path, std::vector<DynSym>* out, std::string* error) {
  std::ifstream f(path, std::ios::binary);
  std::vector<char> img((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
  if (img.size() < sizeof(Elf64_Ehdr)) return *error = "cannot read file", false;
  Elf64_Ehdr eh;
  std::memcpy(&eh, img.data(), sizeof(eh));
  if (std::memcmp(eh.e_ident, ELFMAG, SELFMAG) != 0 || eh.e_ident[EI_CLASS] != ELFCLASS64)
    return *error = "not a 64-bit ELF file", false;
  if (eh.e_shoff == 0 || eh.e_shentsize != sizeof(Elf64_Shdr) ||
      eh.e_shoff + static_cast<uint64_t>(eh.e_shnum) * sizeof(Elf64_Shdr) > img.size())
    return *error = "bad section table", false;
  std::vector<Elf64_Shdr> sh(eh.e_shnum);
  std::memcpy(sh.data(), img.data() + eh.e_shoff, eh.e_shnum * sizeof(Elf64_Shdr));
  int found = 0;
  for (const Elf64_Shdr& s : sh) {
    if (s.sh_type != SHT_DYNSYM) continue;
    ++found;
    if (s.sh_link >= sh.size()) return *error = "bad string table link", false;
    const Elf64_Shdr& str = sh[s.sh_link];
    if (s.sh_offset + s.sh_size > img.size() || str.sh_offset + str.sh_size > img.size())
      return *error = "section out of file", false;
    size_t n = s.sh_size / sizeof(Elf64_Sym);
    for (size_t i = 1; i < n; ++i) {
      Elf64_Sym sym;
      std::memcpy(&sym, img.data() + s.sh_offset + i * sizeof(Elf64_Sym), sizeof(sym));
      if (sym.st_name >= str.sh_size) return *error = "bad symbol name", false;
      const char* name = img.data() + str.sh_offset + sym.st_name;
      out->push_back(DynSym{std::string(name, strnlen(name, str.sh_size - sym.st_name)),
                            sym.st_shndx != SHN_UNDEF, static_cast<unsigned char>(ELF64_ST_TYPE(sym.st_info)),
                            static_cast<unsigned char>(ELF64_ST_BIND(sym.st_info)),
                            static_cast<unsigned char>(ELF64_ST_VISIBILITY(sym.st_other))});
    }
  }
  if (found != 1) return *error = "expected one .dynsym section", false;
  return true;
}

std::set<std::string> AllExports() {
  std::set<std::string> s(std::begin(sdktest::kLifecycleExports), std::end(sdktest::kLifecycleExports));
  s.insert(std::begin(sdktest::kForwardingExports), std::end(sdktest::kForwardingExports));
  return s;
}

TEST(SdkSymbols, TheNameListHas59DistinctNames) {
  std::set<std::string> all = AllExports();
  EXPECT_EQ(all.size(), 59u);
  // The plain logout is spelled with a capital O, its twin without.
  EXPECT_EQ(all.count("QXNet_LogOutDev"), 1u);
  EXPECT_EQ(all.count("QXNet_Loc_LogoutDev"), 1u);
  EXPECT_EQ(all.count("QXNet_LogoutDev"), 0u);
  EXPECT_EQ(all.count("QXNet_Loc_LogOutDev"), 0u);
}

TEST(SdkSymbols, DynamicTableDefinesExactlyTheExports) {
  std::vector<DynSym> syms;
  std::string error;
  ASSERT_TRUE(ReadDynamicSymbols(QXNET_SDK_LIBRARY, &syms, &error)) << error;
  std::set<std::string> defined;
  for (const DynSym& s : syms) {
    if (!s.defined) continue;
    EXPECT_TRUE(defined.insert(s.name).second) << "defined twice: " << s.name;
    EXPECT_EQ(s.type, STT_FUNC) << s.name;
    EXPECT_EQ(s.bind, STB_GLOBAL) << s.name;
    EXPECT_EQ(s.visibility, STV_DEFAULT) << s.name;
  }
  std::set<std::string> expected = AllExports();
  std::vector<std::string> extra, missing;
  std::set_difference(defined.begin(), defined.end(), expected.begin(), expected.end(), std::back_inserter(extra));
  std::set_difference(expected.begin(), expected.end(), defined.begin(), defined.end(), std::back_inserter(missing));
  std::string extraText, missingText;
  for (const std::string& s : extra) extraText += s + " ";
  for (const std::string& s : missing) missingText += s + " ";
  EXPECT_TRUE(extra.empty()) << "defined but not an export: " << extraText;
  EXPECT_TRUE(missing.empty()) << "exports missing: " << missingText;
  EXPECT_EQ(defined.size(), 59u);

  // No symbol at all, defined or referenced, spells one of the five hidden functions.
  for (const DynSym& s : syms)
    for (const char* hidden : sdktest::kHiddenFunctions)
      EXPECT_EQ(s.name.find(hidden), std::string::npos) << s.name;
}

class Loaded : public ::testing::Test {
 protected:
  void SetUp() override {
    // Kept mapped after dlclose: memory that the library's dependencies hold from their
    // static storage would otherwise look leaked to LeakSanitizer once unmapped.
    handle_ = dlopen(QXNET_SDK_LIBRARY, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    ASSERT_NE(handle_, nullptr) << dlerror();
  }
  void TearDown() override {
    if (handle_) dlclose(handle_);
  }
  void* handle_ = nullptr;
};

TEST_F(Loaded, EveryExportResolvesByItsPlainName) {
  for (const std::string& name : AllExports()) {
    dlerror();
    void* p = dlsym(handle_, name.c_str());
    EXPECT_NE(p, nullptr) << name << ": " << (dlerror() ? "not found" : "");
    Dl_info info;
    if (p) {
      ASSERT_NE(dladdr(p, &info), 0);
      EXPECT_STREQ(info.dli_sname, name.c_str());
    }
  }
}

TEST_F(Loaded, HiddenFunctionsResolveUnderNoName) {
  for (const char* name : sdktest::kHiddenFunctions) {
    EXPECT_EQ(dlsym(handle_, name), nullptr) << name;
    std::string underscored = std::string("_") + name;
    EXPECT_EQ(dlsym(handle_, underscored.c_str()), nullptr) << underscored;
  }
  for (const char* mangled : sdktest::kHiddenMangled) EXPECT_EQ(dlsym(handle_, mangled), nullptr) << mangled;
  // Nor do the core's or the sessions' C++ names.
  EXPECT_EQ(dlsym(handle_, "_ZN11CNetSDKFunc30SDK_SetPlayActionEventCallBackEPFllllPcPvES1_"), nullptr);
  EXPECT_EQ(dlsym(handle_, "g_pInstance"), nullptr);
  EXPECT_EQ(dlsym(handle_, "_Z5fLogjPKcz"), nullptr);
}

TEST_F(Loaded, ExportsBehaveThroughTheSharedLibrary) {
  auto version = reinterpret_cast<const char* (*)()>(dlsym(handle_, "QXNet_GetSdkVersion"));
  auto start = reinterpret_cast<long (*)()>(dlsym(handle_, "QXNet_StartSearchDev"));
  auto init = reinterpret_cast<long (*)()>(dlsym(handle_, "QXNet_init"));
  auto freeLib = reinterpret_cast<long (*)()>(dlsym(handle_, "QXNet_Free"));
  auto login = reinterpret_cast<long (*)(char*, unsigned long, char*, char*, int)>(dlsym(handle_, "QXNet_LoginDev"));
  auto logout = reinterpret_cast<long (*)(long)>(dlsym(handle_, "QXNet_LogOutDev"));
  auto logout2 = reinterpret_cast<long (*)(long)>(dlsym(handle_, "QXNet_Loc_LogoutDev"));
  ASSERT_TRUE(version && start && init && freeLib && login && logout && logout2);
  EXPECT_STREQ(version(), "SDK_PC_V2.8.5_20171109_001");
  EXPECT_EQ(start(), QXNET_E_NOT_INIT);
  EXPECT_EQ(logout(1), QXNET_E_NOT_INIT);
  ASSERT_EQ(init(), 0);
  long id = login(const_cast<char*>("127.0.0.1"), 8000, nullptr, nullptr, 1);
  EXPECT_NE(id, 0);
  EXPECT_EQ(logout2(id), 0);
  EXPECT_EQ(logout(id), QXNET_E_NO_DEVICE);
  EXPECT_EQ(freeLib(), 0);
  EXPECT_EQ(logout(id), QXNET_E_NOT_INIT);
}

}  // namespace
