// The binary interface the built library presents to a daemon built apart from it:
// the target it was built for, what it exports, what it leaves for the loading
// process and the runtime libraries to resolve, and what it needs.
#include <gtest/gtest.h>

#include <elf.h>

#include <algorithm>
#include <regex>
#include <set>
#include <string>

#include "ElfSymbols.h"
#include "TestHost.h"

namespace {

using testing_host::ElfDynamicInfo;
using testing_host::ElfSymbol;

// Every symbol the library defines for other objects: the two entry points and the
// type information (object and name) of the interface classes whose objects it hands
// to the daemon or casts the daemon's objects to. Type information is weak: the
// daemon's copy, when it has one, is the one used, and the names compare equal anyway.
const char* const kDefinedSymbols[] = {
    "FeatureType",
    "FeatureCreate2",
    "_ZTI15IFeatureModule2",
    "_ZTS15IFeatureModule2",
    "_ZTI14IEventObserver",
    "_ZTS14IEventObserver",
    "_ZTI20IReflectionInterface",
    "_ZTS20IReflectionInterface",
    "_ZTI22IMicroHostSensorFemale",
    "_ZTS22IMicroHostSensorFemale",
    "_ZTI20IMicroHostSensorMale",
    "_ZTS20IMicroHostSensorMale",
    "_ZTI24IPositioningSensorFemale",
    "_ZTS24IPositioningSensorFemale",
    "_ZTI22IPositioningSensorMale",
    "_ZTS22IPositioningSensorMale",
    "_ZTI30IHalvikPositioningSensorFemale",
    "_ZTS30IHalvikPositioningSensorFemale",
    "_ZTI28IHalvikPositioningSensorMale",
    "_ZTS28IHalvikPositioningSensorMale",
    "_ZTI21IArdenClockSyncFemale",
    "_ZTS21IArdenClockSyncFemale",
    "_ZTI19IArdenClockSyncMale",
    "_ZTS19IArdenClockSyncMale",
};

// Virtual tables of the same interface classes: a compiler may emit them (weak) where
// it keeps an interface's own constructor, for example without optimisation. The
// optimised builds of both targets emit none.
const char* const kOptionalSymbols[] = {
    "_ZTV15IFeatureModule2",
    "_ZTV14IEventObserver",
    "_ZTV20IReflectionInterface",
    "_ZTV22IMicroHostSensorFemale",
    "_ZTV20IMicroHostSensorMale",
    "_ZTV24IPositioningSensorFemale",
    "_ZTV22IPositioningSensorMale",
    "_ZTV30IHalvikPositioningSensorFemale",
    "_ZTV28IHalvikPositioningSensorMale",
    "_ZTV21IArdenClockSyncFemale",
    "_ZTV19IArdenClockSyncMale",
};

// The host's symbols the module uses; they must stay undefined in it.
const char* const kHostSymbols[] = {
    "OSALTickInit",
    "OSALTickCount",
    "platSleep",
    "_ZN7logging8IControlEv",        // logging::IControl()
    "_ZN7logging9internals4ILogEv",  // logging::internals::ILog()
    "_ZN9CPDDevice8InstanceEv",      // CPDDevice::Instance()
    "_ZNK9CPDDevice10MainUnitIOEv",  // CPDDevice::MainUnitIO() const
    "_ZNK9CPDDevice10CanMicroIOEv",  // CPDDevice::CanMicroIO() const
};

// The runtime libraries the module may need and take symbols from.
const char* const kRuntimeLibraries[] = {"libstdc++.so.6", "libgcc_s.so.1", "libc.so.6", "libm.so.6"};

// Weak references the toolchain's start files add to every shared object; nothing
// provides them in an ordinary process.
const char* const kToolchainHooks[] = {"__gmon_start__", "_ITM_registerTMCloneTable", "_ITM_deregisterTMCloneTable"};

bool IsRuntimeSymbol(const std::string& aName) {
  // The C library, the C++ runtime and the compiler's support routines (on ARM the
  // EABI helpers for division and unwinding: __aeabi_idiv, __aeabi_unwind_cpp_pr0).
  static const std::regex runtime(
      "^(malloc|calloc|free|memcpy|memmove|memset|memcmp|strlen|printf|puts|putchar|abort|__libc_single_threaded|"
      "__cxa_[a-z_]+|__stack_chk_[a-z]+|__aeabi_[a-z0-9_]+|"
      "__gxx_personality_v0|_Unwind_[A-Za-z]+|__dynamic_cast|"
      "_ZNSt.*|_ZNKSt.*|_ZNSs.*|_ZNKSs.*|_ZSt.*|_ZTVN10__cxxabiv1.*|_Zdl.*|_Znw.*|_Zda.*|_Zna.*)$");
  return std::regex_match(aName, runtime);
}

template <size_t N>
bool Contains(const char* const (&aList)[N], const std::string& aName) {
  return std::find(std::begin(aList), std::end(aList), aName) != std::end(aList);
}

class ModuleSymbolsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(testing_host::ReadElfDynamicInfo(testing_host::ModulePath(), iInfo, error)) << error;
  }
  // Symbols the library offers to other objects. Local entries (an ARM link keeps
  // unnamed section symbols in the dynamic table) bind nothing and are left out.
  std::vector<ElfSymbol> Exported() const {
    std::vector<ElfSymbol> exported;
    for (const ElfSymbol& symbol : iInfo.symbols)
      if (symbol.defined && !symbol.local) exported.push_back(symbol);
    return exported;
  }
  std::vector<ElfSymbol> Undefined() const {
    std::vector<ElfSymbol> undefined;
    for (const ElfSymbol& symbol : iInfo.symbols)
      if (!symbol.defined && !symbol.local) undefined.push_back(symbol);
    return undefined;
  }
  const ElfSymbol* Find(const std::string& aName) const {
    for (const ElfSymbol& symbol : iInfo.symbols)
      if (symbol.name == aName) return &symbol;
    return nullptr;
  }
  ElfDynamicInfo iInfo;
};

TEST_F(ModuleSymbolsTest, IsBuiltForTheTargetOfTheTests) {
#if defined(__arm__) && !defined(__aarch64__)
  EXPECT_EQ(32, iInfo.elfClass);
  EXPECT_EQ(unsigned(EM_ARM), iInfo.machine);
  EXPECT_EQ(unsigned(EF_ARM_EABI_VER5), iInfo.flags & EF_ARM_EABIMASK);
  EXPECT_NE(0u, iInfo.flags & EF_ARM_ABI_FLOAT_HARD) << "hard-float calling convention";
#elif defined(__x86_64__)
  EXPECT_EQ(64, iInfo.elfClass);
  EXPECT_EQ(unsigned(EM_X86_64), iInfo.machine);
#else
  GTEST_SKIP() << "no expectation for this target";
#endif
}

TEST_F(ModuleSymbolsTest, ExportsBothEntryPointsUnderTheirPlainNames) {
  for (const char* name : {"FeatureType", "FeatureCreate2"}) {
    const ElfSymbol* symbol = Find(name);
    ASSERT_NE(nullptr, symbol) << name;
    EXPECT_TRUE(symbol->defined) << name;
    EXPECT_TRUE(symbol->function) << name;
    EXPECT_FALSE(symbol->weak) << name;
    EXPECT_FALSE(symbol->local) << name;
    EXPECT_EQ("", symbol->version) << name;
  }
}

TEST_F(ModuleSymbolsTest, DefinesEveryListedSymbol) {
  for (const char* name : kDefinedSymbols) {
    const ElfSymbol* symbol = Find(name);
    ASSERT_NE(nullptr, symbol) << name;
    EXPECT_TRUE(symbol->defined) << name;
    EXPECT_FALSE(symbol->local) << name;
  }
}

TEST_F(ModuleSymbolsTest, DefinesNothingBeyondTheListedSymbols) {
  for (const ElfSymbol& symbol : Exported())
    EXPECT_TRUE(Contains(kDefinedSymbols, symbol.name) || Contains(kOptionalSymbols, symbol.name)) << symbol.name;
}

TEST_F(ModuleSymbolsTest, TypeInformationIsWeakObjectData) {
  for (const ElfSymbol& symbol : Exported()) {
    if (symbol.name.rfind("_ZT", 0) != 0) continue;
    EXPECT_TRUE(symbol.object) << symbol.name;
    EXPECT_TRUE(symbol.weak) << symbol.name;
  }
}

TEST_F(ModuleSymbolsTest, LeavesEveryHostSymbolUndefinedAndUnversioned) {
  for (const char* name : kHostSymbols) {
    const ElfSymbol* symbol = Find(name);
    ASSERT_NE(nullptr, symbol) << name;
    EXPECT_FALSE(symbol->defined) << name;
    EXPECT_FALSE(symbol->weak) << name;
    // A version would tie it to a library; the host's come from the process.
    EXPECT_EQ("", symbol->version) << name;
  }
}

TEST_F(ModuleSymbolsTest, LeavesUndefinedOnlyHostAndRuntimeSymbols) {
  for (const ElfSymbol& symbol : Undefined()) {
    EXPECT_TRUE(Contains(kHostSymbols, symbol.name) || Contains(kToolchainHooks, symbol.name) ||
                IsRuntimeSymbol(symbol.name))
        << symbol.name;
  }
}

TEST_F(ModuleSymbolsTest, TakesEveryRuntimeSymbolFromARuntimeLibraryByVersion) {
  for (const ElfSymbol& symbol : Undefined()) {
    if (Contains(kHostSymbols, symbol.name)) continue;
    if (Contains(kToolchainHooks, symbol.name)) {
      EXPECT_TRUE(symbol.weak) << symbol.name;
      continue;
    }
    EXPECT_TRUE(Contains(kRuntimeLibraries, symbol.versionFile))
        << symbol.name << "@" << symbol.version << " from '" << symbol.versionFile << "'";
  }
}

// The contract passes std::string (feature identifiers, instance and property names),
// and the entry points are C names: nothing at load time tells a daemon built with the
// other std::string ABI (_GLIBCXX_USE_CXX11_ABI) from a matching one. What the module
// takes of the string class from libstdc++ shows the ABI it was built with: exactly
// these, for the ABI this test is built with (the same as the module's).
TEST_F(ModuleSymbolsTest, TakesTheStringClassOfItsOwnStringAbi) {
  const std::string size = sizeof(size_t) == 8 ? "m" : "j";  // size_t in a mangled name
#if _GLIBCXX_USE_CXX11_ABI
  const std::string version = "GLIBCXX_3.4.21";
  const std::set<std::string> expected = {
      "_ZNKSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEE7compareEPKc",
      "_ZNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEE9_M_createER" + size + size,
  };
#else
  const std::string version = "GLIBCXX_3.4";
  const std::set<std::string> expected = {
      "_ZNKSs7compareEPKc",
      "_ZNSs4_Rep10_M_destroyERKSaIcE",
      "_ZNSs4_Rep20_S_empty_rep_storageE",
      "_ZNSs4_Rep8_M_cloneERKSaIcE" + size,
      "_ZNSs4_Rep9_S_createE" + size + size + "RKSaIcE",
  };
#endif
  std::set<std::string> strings;
  for (const ElfSymbol& symbol : Undefined()) {
    if (symbol.name.find("basic_string") == std::string::npos && symbol.name.rfind("_ZNSs", 0) != 0 &&
        symbol.name.rfind("_ZNKSs", 0) != 0)
      continue;
    strings.insert(symbol.name);
    EXPECT_EQ(version, symbol.version) << symbol.name;
    EXPECT_EQ("libstdc++.so.6", symbol.versionFile) << symbol.name;
  }
  EXPECT_EQ(expected, strings);
}

TEST_F(ModuleSymbolsTest, NeedsOnlyRuntimeLibrariesAndNoHostLibrary) {
  // Host symbols resolve from the loading process, whatever library holds them there.
  ASSERT_FALSE(iInfo.needed.empty());
  for (const std::string& needed : iInfo.needed) EXPECT_TRUE(Contains(kRuntimeLibraries, needed)) << needed;
}

}  // namespace
