#include "ImportCommand.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <memory>

#include "ExitCodes.h"
#include "NumberParse.h"
#include "OutputFiles.h"
#include "TraceFile.h"

namespace sim {

namespace {

const double kDegreesPerRadian = 180.0 / M_PI;

const char* const kImportFooter =
    "Units: --time NAME:s|ms|us; --yaw-rate NAME:deg/s|rad/s:left|right (which turn the input counts positive;\n"
    "left = counter-clockwise, as vehicle and robot frames do); --speed NAME:m/s|km/h (negative: reversing) or\n"
    "--distance NAME:m (cumulative); --direction NAME (R, reverse or below 0; D, F, forward, drive or above 0;\n"
    "P, N, park, neutral or 0 keep the last); a pose as --x NAME:m --y NAME:m (east, north) or\n"
    "--lat NAME:deg --lon NAME:deg, with --heading NAME:deg|rad:compass|math (compass: clockwise from north;\n"
    "math: counter-clockwise from east). An empty field keeps the previous row's value.\n"
    "\n"
    "Each record is one period (--period, default 200 ms) of the drive: the mean angular rate over it, the\n"
    "distance travelled in it as pulses (the fraction carried to the next record), the direction at its end.\n"
    "\n"
    "Trace fields (what the simulator replays):\n"
    "  field                 unit / meaning\n"
    "  TimeStamp, timeStamp  ms of the service's clock, the end of the record's period\n"
    "  AngularRate, value1   1/100 deg/s, right turns positive (signed 16 bits)\n"
    "  DistancePuls, value2  pulses in the period, 4 per metre (CAN: 0 to 65535; external: 0 to 32767)\n"
    "  DrivingDirection      CAN: 0x21 (33) forward, 0x25 (37) reverse, else unknown\n"
    "  value3                external: 1 forward, 2 reverse, else unknown\n"
    "  NrOfSamples, value0   rows of the input in the period (at most 255)\n"
    "Truth file (--truth): time_stamp (ms, as the trace), x_m, y_m (m east, north of the first pose),\n"
    "  heading_deg (clockwise from north), and latitude_deg, longitude_deg when the pose is geographic;\n"
    "  one pose before the first record, then one after each.\n"
    "\n"
    "Exit status: 0 done; 1 an output could not be written; 2 usage error; 4 the input cannot be read or\n"
    "holds a bad row (no output is left behind).\n"
    "\n"
    "Example:\n"
    "  positioning-sim import drive.csv -o drive.trace.csv --truth drive.truth.csv --time t:s \\\n"
    "    --yaw-rate yaw:rad/s:left --speed v:km/h --lat lat:deg --lon lon:deg --heading course:deg:compass\n"
    "  positioning-sim --trace drive.trace.csv --truth drive.truth.csv --path path.csv\n";

std::vector<std::string> Parts(const std::string& aText) {
  std::vector<std::string> parts(1);
  for (char c : aText) {
    if (c == ':') {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  return parts;
}

// "NAME:UNIT[:CONVENTION]" into a column; aUnits lists each unit with its scale.
bool Resolve(const std::string& aOption, const std::string& aText,
             const std::vector<std::pair<std::string, double>>& aUnits, const std::vector<std::string>& aConventions,
             ColumnSpec& aSpec, std::string& aConvention, std::string& aError) {
  if (aText.empty()) return true;
  const std::vector<std::string> parts = Parts(aText);
  std::string units;
  for (const auto& unit : aUnits) units += (units.empty() ? "" : "|") + unit.first;
  std::string conventions;
  for (const std::string& convention : aConventions) conventions += (conventions.empty() ? "" : "|") + convention;
  const std::string form = "NAME:" + units + (aConventions.empty() ? "" : ":" + conventions);
  if (parts.size() != (aConventions.empty() ? 2u : 3u) || parts[0].empty())
    return aError = aOption + " takes " + form + ": '" + aText + "'", false;
  aSpec.name = parts[0];
  bool known = false;
  for (const auto& unit : aUnits) {
    if (unit.first == parts[1]) aSpec.scale = unit.second, known = true;
  }
  if (!known) return aError = aOption + ": unknown unit '" + parts[1] + "' (" + units + ")", false;
  if (aConventions.empty()) return true;
  aConvention = parts[2];
  for (const std::string& convention : aConventions) {
    if (convention == aConvention) return true;
  }
  return aError = aOption + ": unknown convention '" + aConvention + "' (" + conventions + ")", false;
}

// A file written beside its final name, which it takes only when all went well.
class CPendingOutput {
 public:
  ~CPendingOutput() {
    if (iFile != nullptr) fclose(iFile);
    if (!iTemporary.empty()) unlink(iTemporary.c_str());
  }
  bool Open(const std::string& aPath, std::string& aError) {
    iPath = aPath;
    iTemporary = aPath + ".partial-XXXXXX";
    const int descriptor = mkstemp(&iTemporary[0]);
    if (descriptor < 0) {
      iTemporary.clear();
      return aError = aPath + ": " + strerror(errno), false;
    }
    iFile = fdopen(descriptor, "w");
    return true;
  }
  FILE* File() { return iFile; }
  bool Commit(std::string& aError) {
    FILE* file = iFile;
    iFile = nullptr;
    if (!CloseOutput(file, iPath, aError)) return false;
    if (rename(iTemporary.c_str(), iPath.c_str()) != 0) return aError = iPath + ": " + strerror(errno), false;
    iTemporary.clear();
    return true;
  }

 private:
  std::string iPath;
  std::string iTemporary;
  FILE* iFile = nullptr;
};

int Fail(int aStatus, const std::string& aMessage) {
  fprintf(stderr, "positioning-sim import: %s\n", aMessage.c_str());
  return aStatus;
}

}  // namespace

CLI::App* AddImportCommand(CLI::App& aApp, ImportOptions& aOptions) {
  CLI::App* import = aApp.add_subcommand(
      "import", "turn a recorded drive (CSV of signals with named columns) into a trace and a truth file");
  import->footer(kImportFooter);
  import->add_option("INPUT", aOptions.inputPath, "the recorded drive, CSV with a header row (- for standard input)")
      ->required()
      ->type_name("FILE");
  import->add_option("-o,--output", aOptions.tracePath, "the trace to write")->required()->type_name("FILE");
  import->add_option("--truth", aOptions.truthPath, "the truth file to write (needs a pose)")->type_name("FILE");
  import->add_option("--diversity", aOptions.diversity, "the trace's source: CAN (default) or EXTERNAL")
      ->type_name("CAN|EXTERNAL");
  import
      ->add_option("--period", aOptions.periodMs,
                   "record period in ms (default 200, as the module's sensors are configured)")
      ->type_name("MS")
      ->check(CLI::Range(1u, 60000u));
  import
      ->add_option_function<std::string>(
          "--first-stamp",
          [&aOptions](const std::string& aText) {
            std::string why;
  if (!ParseUnsigned(aText, 0x7FFFFFFFFFFFFFFFULL, aOptions.firstStamp, why)) throw CLI::ValidationError(why);
  aOptions.hasFirstStamp = true;
},
          "the first record's time stamp, ms (default: the input's time at the end of the first period)")
      ->type_name("MS");
const std::string signals = "Signals (NAME is the input's column)";
import->add_option("--time", aOptions.time, "time: s, ms or us")->required()->type_name("NAME:UNIT")->group(signals);
import->add_option("--yaw-rate", aOptions.rate, "yaw rate: deg/s or rad/s, and which turn is positive")
    ->required()
    ->type_name("NAME:UNIT:left|right")
    ->group(signals);
import->add_option("--speed", aOptions.speed, "speed: m/s or km/h (negative when reversing)")
    ->type_name("NAME:UNIT")
    ->group(signals);
import->add_option("--distance", aOptions.distance, "cumulative distance: m")->type_name("NAME:m")->group(signals);
import->add_option("--direction", aOptions.direction, "gear or signed direction (optional)")
    ->type_name("NAME")
    ->group(signals);
const std::string pose = "Reference pose (optional; for the truth file)";
import->add_option("--x", aOptions.x, "east, m")->type_name("NAME:m")->group(pose);
import->add_option("--y", aOptions.y, "north, m")->type_name("NAME:m")->group(pose);
import->add_option("--lat", aOptions.latitude, "latitude, deg")->type_name("NAME:deg")->group(pose);
import->add_option("--lon", aOptions.longitude, "longitude, deg")->type_name("NAME:deg")->group(pose);
import->add_option("--heading", aOptions.heading, "heading: deg or rad, compass or math")
    ->type_name("NAME:UNIT:compass|math")
    ->group(pose);
return import;
}  // namespace sim

bool ResolveImportOptions(ImportOptions& aOptions, std::string& aError) {
  ImportColumns& columns = aOptions.columns;
  std::string convention;
  if (!Resolve("--time", aOptions.time, {{"s", 1000.0}, {"ms", 1.0}, {"us", 0.001}}, {}, columns.time, convention,
               aError))
    return false;
  if (!Resolve("--yaw-rate", aOptions.rate, {{"deg/s", 1.0}, {"rad/s", kDegreesPerRadian}}, {"left", "right"},
               columns.rate, convention, aError))
    return false;
  // The records count right turns positive.
  if (convention == "left") columns.rate.scale = -columns.rate.scale;
  if (!Resolve("--speed", aOptions.speed, {{"m/s", 1.0}, {"km/h", 1 / 3.6}}, {}, columns.speed, convention, aError) ||
      !Resolve("--distance", aOptions.distance, {{"m", 1.0}}, {}, columns.distance, convention, aError) ||
      !Resolve("--x", aOptions.x, {{"m", 1.0}}, {}, columns.x, convention, aError) ||
      !Resolve("--y", aOptions.y, {{"m", 1.0}}, {}, columns.y, convention, aError) ||
      !Resolve("--lat", aOptions.latitude, {{"deg", 1.0}}, {}, columns.latitude, convention, aError) ||
      !Resolve("--lon", aOptions.longitude, {{"deg", 1.0}}, {}, columns.longitude, convention, aError))
    return false;
  if (!Resolve("--heading", aOptions.heading, {{"deg", 1.0}, {"rad", kDegreesPerRadian}}, {"compass", "math"},
               columns.heading, convention, aError))
    return false;
  if (convention == "math") {
    columns.heading.scale = -columns.heading.scale;
    columns.heading.offset = 90;
  }
  columns.direction = aOptions.direction;
  if (columns.speed.Used() == columns.distance.Used()) return aError = "give one of --speed and --distance", false;
  const bool local = columns.x.Used() || columns.y.Used();
  const bool geographic = columns.latitude.Used() || columns.longitude.Used();
  if (local && geographic) return aError = "give a pose as --x and --y or as --lat and --lon, not both", false;
  if ((local && !(columns.x.Used() && columns.y.Used())) ||
      (geographic && !(columns.latitude.Used() && columns.longitude.Used())))
    return aError = "a pose needs both --x and --y, or both --lat and --lon", false;
  const bool pose = local || geographic;
  if (pose != columns.heading.Used()) return aError = "a pose needs --heading, and --heading a pose", false;
  if (!aOptions.truthPath.empty() && !pose) return aError = "--truth needs a pose (--x/--y or --lat/--lon)", false;
  if (aOptions.diversity != "CAN" && aOptions.diversity != "EXTERNAL")
    return aError = "--diversity takes CAN or EXTERNAL: '" + aOptions.diversity + "'", false;
  return true;
}

int RunImport(const ImportOptions& aOptions) {
  std::string error;
  std::vector<OutputRequest> outputs = {{"--output", aOptions.tracePath}};
  if (!aOptions.truthPath.empty()) outputs.push_back({"--truth", aOptions.truthPath});
  if (!OutputsAreDistinct(outputs, {aOptions.inputPath}, error)) return Fail(kExitUsage, error);
  CSignalTable table;
  if (!table.Open(aOptions.inputPath, aOptions.columns, error)) return Fail(kExitBadInput, error);
  CPendingOutput trace;
  CPendingOutput truth;
  if (!trace.Open(aOptions.tracePath, error)) return Fail(kExitIoFailure, error);
  if (!aOptions.truthPath.empty() && !truth.Open(aOptions.truthPath, error)) return Fail(kExitIoFailure, error);

  ResampleSetup setup;
  setup.kind = aOptions.diversity == "EXTERNAL" ? SourceKind::External : SourceKind::Can;
  setup.periodMs = aOptions.periodMs;
  setup.byDistance = aOptions.columns.distance.Used();
  setup.geographic = aOptions.columns.latitude.Used();
  setup.hasFirstStamp = aOptions.hasFirstStamp;
  setup.firstStamp = aOptions.firstStamp;
  fprintf(trace.File(), "# positioning-sim import of %s: one record per %u ms\n",
          aOptions.inputPath == "-" ? "standard input" : aOptions.inputPath.c_str(), aOptions.periodMs);
  CTraceWriter traceWriter(trace.File(), setup.kind, nullptr);
  std::unique_ptr<CTruthWriter> truthWriter;
  if (truth.File() != nullptr) truthWriter.reset(new CTruthWriter(truth.File(), setup.geographic));
  const uint64_t stampLimit = 0xFFFFFFFFULL;  // both services stamp in 32 bits
  bool stampTooLarge = false;
  CResampler resampler(
      setup,
      [&](const DriveRecord& aRecord) {
        stampTooLarge = stampTooLarge || aRecord.stamp > stampLimit;
        traceWriter.Write(aRecord);
      },
      truthWriter ? CResampler::TruthSink([&](const TruthPoint& aPoint) { truthWriter->Write(aPoint); })
                  : CResampler::TruthSink());
  SignalRow row;
  const std::string input = aOptions.inputPath == "-" ? "standard input" : aOptions.inputPath;
  while (table.Next(row, error)) {
    if (!resampler.Add(row, error)) return Fail(kExitBadInput, input + ":" + error.substr(5));
    if (stampTooLarge) {
      return Fail(kExitBadInput, input + ":" + std::to_string(row.line) +
                                     ": the time stamps pass the service's 32-bit clock: give --first-stamp");
    }
  }
  if (!error.empty()) return Fail(kExitBadInput, error);
  if (!resampler.Finish(error)) return Fail(kExitBadInput, input + ": " + error);
  if (!trace.Commit(error)) return Fail(kExitIoFailure, error);
  if (truthWriter && !truth.Commit(error)) return Fail(kExitIoFailure, error);
  fprintf(stderr, "positioning-sim import: %llu rows, %llu %s records of %u ms, %.1f m%s\n",
          static_cast<unsigned long long>(table.Rows()), static_cast<unsigned long long>(resampler.Records()),
          SourceName(setup.kind), aOptions.periodMs, resampler.Metres(), truthWriter ? ", with truth" : "");
  return kExitOk;
}

}  // namespace sim
