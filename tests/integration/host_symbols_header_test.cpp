// The installed headers against the built library: HostSymbols.h declares every symbol
// the library leaves for the daemon, with the contract's types, and PositioningModule.h
// the entry points, the pointer types a daemon casts dlsym's results to, and the
// interface pairs' identities and instances.
#include <gtest/gtest.h>

#include <cxxabi.h>
#include <dlfcn.h>
#include <stdlib.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <type_traits>

#include "ContractConstants.h"
#include "ElfSymbols.h"
#include "HostSymbols.h"
#include "LoadedModuleTest.h"
#include "PositioningModule.h"
#include "TestHost.h"

static_assert(std::is_same<decltype(&OSALTickInit), int (*)()>::value, "OSALTickInit");
static_assert(std::is_same<decltype(&OSALTickCount), uint64_t (*)()>::value, "OSALTickCount");
static_assert(std::is_same<decltype(&platSleep), void (*)(int)>::value, "platSleep");
static_assert(std::is_same<decltype(&logging::IControl), logging::ILogControl& (*)()>::value, "IControl");
static_assert(std::is_same<decltype(&logging::internals::ILog), logging::internals::ILogger& (*)()>::value, "ILog");
static_assert(std::is_same<decltype(&CPDDevice::Instance), CPDDevice& (*)()>::value, "Instance");
static_assert(std::is_same<decltype(&CPDDevice::MainUnitIO), IMainUnitIO& (CPDDevice::*)() const>::value, "MainUnitIO");
static_assert(std::is_same<decltype(&CPDDevice::CanMicroIO), ICanMicroIO& (CPDDevice::*)() const>::value, "CanMicroIO");
static_assert(std::is_same<decltype(&FeatureType), TFeatureTypeFunction>::value, "FeatureType");
static_assert(std::is_same<decltype(&FeatureCreate2), TFeatureCreate2Function>::value, "FeatureCreate2");

namespace {

std::string HeaderText() {
  std::ifstream header(std::string(POSITIONING_SOURCE_DIR) + "/include/HostSymbols.h");
  std::stringstream text;
  text << header.rdbuf();
  return text.str();
}

// "CPDDevice::MainUnitIO() const" -> "MainUnitIO"
std::string FunctionName(const std::string& aMangled) {
  int status = 0;
  char* demangled = abi::__cxa_demangle(aMangled.c_str(), nullptr, nullptr, &status);
  std::string name = status == 0 ? demangled : aMangled;
  free(demangled);
  name = name.substr(0, name.find('('));
  return name.substr(name.rfind(':') == std::string::npos ? 0 : name.rfind(':') + 1);
}

TEST(HostSymbolsHeaderTest, DeclaresEverySymbolTheLibraryLeavesToTheDaemon) {
  testing_host::ElfDynamicInfo info;
  std::string error;
  ASSERT_TRUE(testing_host::ReadElfDynamicInfo(testing_host::ModulePath(), info, error)) << error;
  const std::string header = HeaderText();
  ASSERT_FALSE(header.empty());
  int hostSymbols = 0;
  for (const testing_host::ElfSymbol& symbol : info.symbols) {
    // The daemon's: undefined, strong and bound to no library version.
    if (symbol.defined || symbol.weak || symbol.local || !symbol.version.empty()) continue;
    // Instrumented builds (sanitizers, coverage) add their runtime's hooks the same way.
    if (std::regex_search(symbol.name, std::regex("^__(asan|ubsan|lsan|sanitizer|sancov|gcov|llvm)"))) continue;
    ++hostSymbols;
    const std::string name = FunctionName(symbol.name);
    EXPECT_TRUE(std::regex_search(header, std::regex("[^A-Za-z0-9_]" + name + "\\(")))
        << symbol.name << " (" << name << ") not in HostSymbols.h";
  }
  EXPECT_EQ(8, hostSymbols);
}

TEST(HostSymbolsHeaderTest, EntryPointsAreFoundUnderTheDeclaredNames) {
  // positioning_host, a shared library of the test, provides the host symbols.
  void* module = dlopen(testing_host::ModulePath().c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(nullptr, module) << dlerror();
  TFeatureTypeFunction featureType = reinterpret_cast<TFeatureTypeFunction>(dlsym(module, kFeatureTypeSymbol));
  ASSERT_NE(nullptr, featureType);
  EXPECT_STREQ("positioning", featureType());
  EXPECT_NE(nullptr, dlsym(module, kFeatureCreate2Symbol));
  dlclose(module);
}

std::string Key(const std::string& aInstance, const TInterfaceIdentity& aIdentity) {
  return "\"" + aInstance + "\" " + std::to_string(aIdentity.identifier) + "/" + std::to_string(aIdentity.qualifier);
}

// The instances and identities PositioningModule.h names are those the module asks
// the broker for, per source.
class InterfacePairsTest : public testing_host::LoadedModuleTest {
 protected:
  std::set<std::string> Requested(const char* aDiversity) {
    iProperties.Set("diversity", aDiversity);
    Create();
    std::set<std::string> keys;
    for (const host::BrokerCall& call : iBroker.Calls()) {
      if (call.kind != host::BrokerCall::Request && call.kind != host::BrokerCall::RequestShared) continue;
      keys.insert(std::string(call.kind == host::BrokerCall::RequestShared ? "shared " : "") +
                  Key(call.instance, TInterfaceIdentity{call.identifier, call.qualifier}));
    }
    return keys;
  }
};

TEST_F(InterfacePairsTest, CanFeatureUsesTheDeclaredPairs) {
  using namespace positioning_feature;
  const std::set<std::string> expected = {"shared " + Key(kServiceInstance, kMicroHostSensorIdentity),
                                          Key(kCanClientInstance, kPositioningSensorIdentity)};
  EXPECT_EQ(expected, Requested("CAN"));
}

TEST_F(InterfacePairsTest, ExternalFeatureUsesTheDeclaredPairs) {
  using namespace positioning_feature;
  const std::set<std::string> expected = {Key(kServiceInstance, kExternalSensorIdentity),
                                          Key(kServiceInstance, kClockSyncIdentity),
                                          Key(kExternalClientInstance, kPositioningSensorIdentity)};
  EXPECT_EQ(expected, Requested("EXTERNAL"));
}

TEST(HostSymbolsHeaderTest, SensorTypesAreTheContracts) {
  EXPECT_EQ(contract::kGyroscope, positioning_feature::kGyroscope);
  EXPECT_EQ(contract::kOdometer, positioning_feature::kOdometer);
}

}  // namespace
