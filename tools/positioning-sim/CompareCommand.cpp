// 64-bit directory offsets, also in a 32-bit build: ext4 hands out 64-bit ones, and a
// 32-bit readdir under an emulator on a 64-bit kernel fails on them (EOVERFLOW).
#define _FILE_OFFSET_BITS 64

#include "CompareCommand.h"

#include <dirent.h>
#include <stdio.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>

#include "ExitCodes.h"
#include "OutputFiles.h"
#include "ResultCompare.h"

namespace sim {

namespace {

using Json = nlohmann::ordered_json;

const char* const kCompareFooter =
    "A and B are result folders of one drive (positioning-sim --result-dir), or trees of them whose drives have\n"
    "the same relative folders (a library re-simulated with two builds). Per drive: identical, or the first\n"
    "sample that differs (client, sensor type, time stamp, values) and how many differ, compared line by line,\n"
    "and every summary figure that moved (B minus A).\n"
    "\n"
    "Exit status:\n"
    "  0  every drive is identical\n"
    "  1  a drive differs or is in one tree only (or the --json file cannot be written)\n"
    "  2  bad input: a folder that is missing or holds no result, a summary that cannot be read\n";

bool IsFolder(const std::string& aPath) {
  struct stat info;
  return stat(aPath.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool IsFile(const std::string& aPath) {
  struct stat info;
  return stat(aPath.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

// Walks aRoot/aRelative for folders with a summary.json; temporary folders and
// hidden ones (a runner's work in progress) are not results.
bool Walk(const std::string& aRoot, const std::string& aRelative, int aDepth, std::vector<std::string>& aKeys,
          std::string& aError) {
  const std::string path = aRelative.empty() ? aRoot : aRoot + "/" + aRelative;
  if (IsFile(path + "/summary.json")) {
    aKeys.push_back(aRelative.empty() ? "." : aRelative);
    return true;
  }
  if (aDepth > 32) return aError = path + ": folders nested too deep", false;
  DIR* dir = opendir(path.c_str());
  if (dir == nullptr) return aError = path + ": cannot be read", false;
  std::vector<std::string> names;
  while (dirent* entry = readdir(dir)) {
    if (entry->d_name[0] != '.') names.push_back(entry->d_name);
  }
  closedir(dir);
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    std::string relative = aRelative;
    if (!relative.empty()) relative += '/';
    relative += name;
    std::string child = path;
    child += '/';
    child += name;
    if (IsFolder(child) && !Walk(aRoot, relative, aDepth + 1, aKeys, aError)) return false;
  }
  return true;
}

std::string Shown(const Json& aValue) {
  if (aValue.is_null()) return "(none)";
  if (aValue.is_string()) return aValue.get<std::string>();
  if (aValue.is_number_float()) {
    char text[40];
    snprintf(text, sizeof text, "%.6g", aValue.get<double>());
    return text;
  }
  return aValue.dump();
}

std::string SampleText(const SampleFields& aSample) {
  if (!aSample.present) return "(no sample: the file ends)";
  if (aSample.client.empty()) return aSample.line;
  return "client " + aSample.client + ", type " + aSample.type + ", time stamp " + aSample.timeStamp + " ms, values " +
         aSample.values + (aSample.replayed == "1" ? ", replayed" : "");
}

void PrintDrive(const std::string& aKey, const DriveComparison& aResult) {
  if (aResult.Identical()) {
    printf("%s: identical (%llu samples)\n", aKey.c_str(), static_cast<unsigned long long>(aResult.firstSamples));
    return;
  }
  printf("%s: differs\n", aKey.c_str());
  if (!aResult.samplesIdentical) {
    printf("  samples: %llu of %llu differ (A %llu, B %llu), the first is sample %llu:\n",
           static_cast<unsigned long long>(aResult.differing),
           static_cast<unsigned long long>(std::max(aResult.firstSamples, aResult.secondSamples)),
           static_cast<unsigned long long>(aResult.firstSamples),
           static_cast<unsigned long long>(aResult.secondSamples),
           static_cast<unsigned long long>(aResult.firstDifference));
    printf("    A: %s\n    B: %s\n", SampleText(aResult.first).c_str(), SampleText(aResult.second).c_str());
  } else {
    printf("  samples: identical (%llu)\n", static_cast<unsigned long long>(aResult.firstSamples));
  }
  // The elements of a list (the offset history) that moved: the first few, then a count.
  const size_t kShownPerList = 3;
  for (size_t i = 0; i < aResult.moved.size();) {
    const std::string list = aResult.moved[i].name.substr(0, aResult.moved[i].name.find('['));
    size_t end = i + 1;
    while (end < aResult.moved.size() && aResult.moved[end].name.compare(0, list.size() + 1, list + "[") == 0) ++end;
    for (size_t shown = i; shown < end && shown < i + kShownPerList; ++shown) {
      const MovedFigure& moved = aResult.moved[shown];
      printf("  %s: %s -> %s", moved.name.c_str(), Shown(moved.first).c_str(), Shown(moved.second).c_str());
      if (moved.numeric) printf(" (%+.6g)", moved.change);
      printf("\n");
    }
    if (end - i > kShownPerList)
      printf("  %s: %zu more moved (--json lists them)\n", list.c_str(), end - i - kShownPerList);
    i = end;
  }
}

Json SampleJson(const SampleFields& aSample) {
  if (!aSample.present) return Json();
  return {{"client", aSample.client}, {"sensor_type", aSample.type},  {"time_stamp", aSample.timeStamp},
          {"values", aSample.values}, {"replayed", aSample.replayed}, {"line", aSample.line}};
}

Json DriveJson(const std::string& aKey, const DriveComparison& aResult) {
  Json json;
  json["drive"] = aKey;
  json["identical"] = aResult.Identical();
  json["samples_a"] = aResult.firstSamples;
  json["samples_b"] = aResult.secondSamples;
  json["samples_differing"] = aResult.differing;
  if (aResult.firstDifference != 0) {
    json["first_difference"] = {
        {"sample", aResult.firstDifference}, {"a", SampleJson(aResult.first)}, {"b", SampleJson(aResult.second)}};
  }
  json["moved"] = Json::array();
  for (const MovedFigure& moved : aResult.moved) {
    Json figure = {{"figure", moved.name}, {"a", moved.first}, {"b", moved.second}};
    if (moved.numeric) figure["change"] = moved.change;
    json["moved"].push_back(figure);
  }
  return json;
}

int Bad(const std::string& aMessage) {
  fprintf(stderr, "positioning-sim compare: %s\n", aMessage.c_str());
  return kExitUsage;
}

}  // namespace

CLI::App* AddCompareCommand(CLI::App& aApp, CompareOptions& aOptions) {
  CLI::App* compare =
      aApp.add_subcommand("compare", "compare two builds' results of one drive or of a library, drive by drive");
  compare->footer(kCompareFooter);
  compare->add_option("A", aOptions.first, "the first build's result folder or tree")->required()->type_name("DIR");
  compare->add_option("B", aOptions.second, "the second build's")->required()->type_name("DIR");
  compare->add_option("--json", aOptions.jsonPath, "the comparison as JSON as well (- for standard output)")
      ->type_name("FILE");
  compare->add_flag("-q,--quiet", aOptions.quiet, "leave out the identical drives");
  return compare;
}

bool FindResults(const std::string& aRoot, std::vector<std::string>& aKeys, std::string& aError) {
  aKeys.clear();
  if (!IsFolder(aRoot)) return aError = aRoot + ": not a folder", false;
  if (!Walk(aRoot, "", 0, aKeys, aError)) return false;
  if (aKeys.empty()) return aError = aRoot + ": holds no result folder (no summary.json)", false;
  return true;
}

int RunCompare(const CompareOptions& aOptions) {
  std::vector<std::string> first, second;
  std::string error;
  if (!FindResults(aOptions.first, first, error) || !FindResults(aOptions.second, second, error)) return Bad(error);
  FILE* json = nullptr;
  if (!aOptions.jsonPath.empty()) {
    json = OpenOutput(aOptions.jsonPath, error);
    if (json == nullptr) return Bad(error);
  }
  std::vector<std::string> keys = first;
  for (const std::string& key : second) {
    if (!std::binary_search(first.begin(), first.end(), key)) keys.push_back(key);
  }
  std::sort(keys.begin(), keys.end());
  uint64_t identical = 0, differing = 0, onlyA = 0, onlyB = 0;
  Json report = {{"a", aOptions.first}, {"b", aOptions.second}, {"drives", Json::array()}};
  for (const std::string& key : keys) {
    const bool inA = std::binary_search(first.begin(), first.end(), key);
    const bool inB = std::binary_search(second.begin(), second.end(), key);
    if (!inA || !inB) {
      printf("%s: only in %s\n", key.c_str(), inA ? "A" : "B");
      (inA ? onlyA : onlyB) += 1;
      report["drives"].push_back({{"drive", key}, {"identical", false}, {"only_in", inA ? "A" : "B"}});
      continue;
    }
    DriveComparison result;
    if (!CompareDrive(aOptions.first + "/" + key, aOptions.second + "/" + key, result, error)) {
      DiscardOutput(json);
      std::string message = key;
      message += ": ";
      message += error;
      return Bad(message);
    }
    (result.Identical() ? identical : differing) += 1;
    if (!aOptions.quiet || !result.Identical()) PrintDrive(key, result);
    report["drives"].push_back(DriveJson(key, result));
  }
  printf("== %zu drive(s): %llu identical, %llu differ, %llu only in A, %llu only in B\n", keys.size(),
         static_cast<unsigned long long>(identical), static_cast<unsigned long long>(differing),
         static_cast<unsigned long long>(onlyA), static_cast<unsigned long long>(onlyB));
  fflush(stdout);
  const bool same = differing == 0 && onlyA == 0 && onlyB == 0;
  if (json != nullptr) {
    report["identical"] = same;
    const std::string text = report.dump(2) + "\n";
    fputs(text.c_str(), json);
    if (!CloseOutput(json, aOptions.jsonPath, error)) {
      fprintf(stderr, "positioning-sim compare: %s\n", error.c_str());
      return 1;
    }
  }
  return same ? 0 : 1;
}

}  // namespace sim
