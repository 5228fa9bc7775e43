// The binary interface the built library presents to a daemon built apart from it:
// what it exports, what it leaves for the loading process, what it needs.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>
#include <cstring>
#include <string>

#include "ElfSymbols.h"
#include "TestHost.h"

namespace {

using testing_host::ElfDynamicInfo;
using testing_host::ElfSymbol;

// The interface classes whose type information (and, where the compiler emits them in
// the module, virtual tables) the library may export.
const char* const kInterfaceClasses[] = {
    "IReflectionInterface",         "IFeatureModule2",
    "IEventObserver",               "IMicroHostSensorFemale",
    "IMicroHostSensorMale",         "IPositioningSensorFemale",
    "IPositioningSensorMale",       "IHalvikPositioningSensorFemale",
    "IHalvikPositioningSensorMale", "IArdenClockSyncFemale",
    "IArdenClockSyncMale",
};

// The host's symbols the module uses; they must stay undefined in it.
const char* const kHostSymbols[] = {
    "OSALTickInit",
    "OSALTickCount",
    "platSleep",
    "_ZN7logging8IControlEv",           // logging::IControl()
    "_ZN7logging9internals4ILogEv",     // logging::internals::ILog()
    "_ZN9CPDDevice8InstanceEv",         // CPDDevice::Instance()
    "_ZNK9CPDDevice10MainUnitIOEv",     // CPDDevice::MainUnitIO() const
    "_ZNK9CPDDevice10CanMicroIOEv",     // CPDDevice::CanMicroIO() const
};

// "_ZTI20IReflectionInterface" and the like, for each interface class.
std::set<std::string> InterfaceClassSymbols(const char* aPrefix) {
  std::set<std::string> names;
  for (const char* name : kInterfaceClasses) names.insert(aPrefix + std::to_string(strlen(name)) + name);
  return names;
}

bool IsRuntimeSymbol(const std::string& aName) {
  // The C library, the C++ runtime and the compiler's support routines.
  static const std::regex runtime(
      "^(malloc|calloc|free|memcpy|memmove|memset|memcmp|strlen|printf|puts|putchar|abort|"
      "__cxa_[a-z_]+|__gmon_start__|_ITM_[A-Za-z]+|__stack_chk_[a-z]+|__aeabi_[a-z0-9]+|"
      "__gxx_personality_v0|_Unwind_[A-Za-z]+|__dynamic_cast|"
      "_ZNSt.*|_ZNKSt.*|_ZSt.*|_ZTVN10__cxxabiv1.*|_Zdl.*|_Znw.*|_Zda.*|_Zna.*)$");
  return std::regex_match(aName, runtime);
}

class ModuleSymbolsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(testing_host::ReadElfDynamicInfo(testing_host::ModulePath(), iInfo, error)) << error;
  }
  std::vector<ElfSymbol> Defined() const {
    std::vector<ElfSymbol> defined;
    for (const ElfSymbol& symbol : iInfo.symbols)
      if (symbol.defined) defined.push_back(symbol);
    return defined;
  }
  const ElfSymbol* Find(const std::string& aName) const {
    for (const ElfSymbol& symbol : iInfo.symbols)
      if (symbol.name == aName) return &symbol;
    return nullptr;
  }
  ElfDynamicInfo iInfo;
};

TEST_F(ModuleSymbolsTest, ExportsBothEntryPointsUnderTheirPlainNames) {
  for (const char* name : {"FeatureType", "FeatureCreate2"}) {
    const ElfSymbol* symbol = Find(name);
    ASSERT_NE(nullptr, symbol) << name;
    EXPECT_TRUE(symbol->defined) << name;
    EXPECT_TRUE(symbol->function) << name;
    EXPECT_FALSE(symbol->weak) << name;
  }
}

TEST_F(ModuleSymbolsTest, DefinesNothingButTheEntryPointsAndInterfaceTypeInformation) {
  std::set<std::string> allowed = {"FeatureType", "FeatureCreate2"};
  for (const char* prefix : {"_ZTI", "_ZTS", "_ZTV"}) {
    const std::set<std::string> names = InterfaceClassSymbols(prefix);
    allowed.insert(names.begin(), names.end());
  }
  for (const ElfSymbol& symbol : Defined()) EXPECT_EQ(1u, allowed.count(symbol.name)) << symbol.name;
}

TEST_F(ModuleSymbolsTest, ExportsTypeInformationOfThePeersItCastsTo) {
  // The handshake's cross cast compares these with the host's by name.
  for (const char* name : {"_ZTI20IReflectionInterface", "_ZTI20IMicroHostSensorMale", "_ZTI22IPositioningSensorMale",
                           "_ZTI21IArdenClockSyncFemale", "_ZTI30IHalvikPositioningSensorFemale"}) {
    const ElfSymbol* symbol = Find(name);
    ASSERT_NE(nullptr, symbol) << name;
    EXPECT_TRUE(symbol->defined) << name;
  }
}

TEST_F(ModuleSymbolsTest, LeavesEveryHostSymbolUndefined) {
  for (const char* name : kHostSymbols) {
    const ElfSymbol* symbol = Find(name);
    ASSERT_NE(nullptr, symbol) << name;
    EXPECT_FALSE(symbol->defined) << name;
  }
}

TEST_F(ModuleSymbolsTest, LeavesUndefinedOnlyHostAndRuntimeSymbols) {
  const std::set<std::string> host(std::begin(kHostSymbols), std::end(kHostSymbols));
  for (const ElfSymbol& symbol : iInfo.symbols) {
    if (symbol.defined) continue;
    EXPECT_TRUE(host.count(symbol.name) == 1 || IsRuntimeSymbol(symbol.name)) << symbol.name;
  }
}

TEST_F(ModuleSymbolsTest, NeedsNoHostLibrary) {
  ASSERT_FALSE(iInfo.needed.empty());
  for (const std::string& needed : iInfo.needed) {
    EXPECT_TRUE(needed.rfind("libstdc++.so", 0) == 0 || needed.rfind("libgcc_s.so", 0) == 0 ||
                needed.rfind("libc.so", 0) == 0 || needed.rfind("libm.so", 0) == 0)
        << needed;
  }
}

}  // namespace
