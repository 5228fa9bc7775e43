#include "OptionValues.h"

#include "ContractConstants.h"
#include "NumberParse.h"

namespace sim {

CLI::Option* COptionValues::Add(CLI::App& aApp, const std::string& aName, const std::string& aType,
                                const std::string& aHelp, const std::string& aExpects,
                                std::function<bool(const std::string&, std::string&)> aConvert) {
  iValues.push_back({aName, std::string(), std::move(aConvert), aExpects});
  Deferred* value = &iValues.back();
  // Each occurrence is converted: repeated options (faults) append.
  CLI::callback_t take = [this, value](const CLI::results_t& aResults) {
    for (const std::string& text : aResults) iPending.push_back({value, text});
    return true;
  };
  return aApp.add_option(aName, take, aHelp)->type_name(aType)->expected(1);
}

bool COptionValues::Convert(std::string& aError) {
  for (const auto& pending : iPending) {
    std::string why;
    if (!pending.first->convert(pending.second, why)) {
      aError = pending.first->option + " takes " + pending.first->expects + ": " + pending.second +
               (why.empty() ? std::string() : " (" + why + ")");
      return false;
    }
  }
  return true;
}

bool Seconds(const std::string& aText, double& aValue, std::string& aWhy) {
  return ParseReal(aText, 0, kLongestDrive, aValue, aWhy);
}

bool Window(const std::string& aText, std::vector<TimeWindow>& aWindows, std::string& aWhy) {
  const size_t colon = aText.find(':');
  TimeWindow window;
  if (!Seconds(aText.substr(0, colon), window.start, aWhy)) return false;
  if (colon != std::string::npos) {
    if (!Seconds(aText.substr(colon + 1), window.end, aWhy)) return false;
    if (window.end <= window.start) return aWhy = "the end must come after the start", false;
  }
  aWindows.push_back(window);
  return true;
}

bool LogLevel(const std::string& aText, uint32_t& aMask) {
  if (aText == "error") return aMask = contract::kLogMaskError, true;
  if (aText == "info") return aMask = contract::kLogMaskInfo, true;
  if (aText == "info2") return aMask = contract::kLogMaskInfo2, true;
  if (aText == "interface" || aText == "all") return aMask = contract::kLogMaskAll, true;
  return false;
}

bool EndsWith(const std::string& aText, const std::string& aEnd) {
  return aText.size() > aEnd.size() && aText.compare(aText.size() - aEnd.size(), aEnd.size(), aEnd) == 0;
}

}  // namespace sim
