#include "SimOptions.h"

#include <stdio.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <deque>
#include <functional>
#include <vector>

#include "ContractConstants.h"
#include "ExitCodes.h"
#include "NumberParse.h"
#include "OptionValues.h"

namespace sim {

namespace {

const char* const kVersion = "positioning-sim 1.0.0";

const char* const kFooter =
    "Without a subcommand, `run` is meant: positioning-sim --duration 60 is positioning-sim run --duration 60.\n"
    "Options take their value as --opt VALUE or --opt=VALUE. Fault times are seconds from the feature's start.\n"
    "positioning-sim import --help: how a recorded drive becomes a trace and a truth file.\n"
    "positioning-sim compare --help: two builds' results of a drive or a library, drive by drive.\n"
    "positioning-sim batch --help: many drives in one process, each into its own result folder.\n"
    "\n"
    "Exit status:\n"
    "  0    the run went through (and with --soak, every check passed)\n"
    "  1    an output could not be opened or written\n"
    "  2    usage error: unknown option, bad value, conflicting outputs\n"
    "  3    --soak: a check failed\n"
    "  4    the trace cannot be read or holds a bad row (nothing was fed)\n"
    "  5    the module cannot be loaded\n"
    "  130  interrupted by SIGINT, 143 by SIGTERM: outputs finished, summary written\n"
    "\n"
    "Trace fields (CSV with a header row, '#' comments; stamps are the service's 32-bit ms clock):\n"
    "  CAN       TimeStamp ms; DistancePuls pulses since the last record (built-in: 4 per metre);\n"
    "            AngularRate (built-in: 1/100 deg/s, right turns positive); DrivingDirection 33 forward,\n"
    "            37 reverse, else unknown; NrOfSamples raw samples in the record\n"
    "  EXTERNAL  timeStamp ms; value0 raw samples; value1 angular rate; value2 distance pulses;\n"
    "            value3 direction 1 forward, 2 reverse, 0 unknown\n"
    "Sample columns: client; sensor_type 1 gyroscope, 2 odometer; time_stamp ms, synchronised;\n"
    "  value_count; values (type 1: raw samples;angular rate, type 2: pulses;direction code);\n"
    "  replayed 1 when replayed from the module's buffer on subscription\n"
    "\n"
    "Example:\n"
    "  positioning-sim --diversity EXTERNAL --late-client 90 --log run.log --plot run.png\n";

void AddPathOptions(CLI::App& aRun, COptionValues& aValues, PathOptions& aPath) {
  const std::string group = "Dead reckoning (the first client's path)";
  aRun.add_option("--path", aPath.csvPath,
                  "the dead-reckoned path as CSV: time_stamp_ms,x_m,y_m,heading_deg,distance_m (x east, y north of "
                  "the start; heading clockwise from north), and the true pose beside it when known")
      ->type_name("FILE")
      ->group(group);
  aRun.add_option("--geojson", aPath.geoJsonPath,
                  "the path as a GeoJSON LineString (needs --origin or a truth with latitude and longitude)")
      ->type_name("FILE")
      ->group(group);
  aValues
      .Add(aRun, "--path-plot", "FILE.png|.svg", "plot the path against the truth, east against north in metres",
           "a file ending in .png or .svg",
           [&aPath](const std::string& aText, std::string&) {
             aPath.plotPath = aText;
             return EndsWith(aText, ".png") || EndsWith(aText, ".svg");
           })
      ->group(group);
  aValues
      .Add(aRun, "--origin", "LAT,LON", "where the path starts, in degrees (for --geojson)",
           "LAT,LON in degrees (-90 to 90, -180 to 180)",
           [&aPath](const std::string& aText, std::string& aWhy) {
             const size_t comma = aText.find(',');
             if (comma == std::string::npos) return aWhy = "no ','", false;
             if (!ParseReal(aText.substr(0, comma), -90, 90, aPath.latitude, aWhy)) return false;
             if (!ParseReal(aText.substr(comma + 1), -180, 180, aPath.longitude, aWhy)) return false;
             aPath.hasOrigin = true;
             return true;
           })
      ->group(group);
  aRun.add_option("--truth", aPath.truthPath,
                  "the true path of a --trace (as positioning-sim import writes it): the summary compares the "
                  "dead-reckoned path with it; the built-in drive knows its own")
      ->type_name("FILE")
      ->group(group);
}

void AddOptions(CLI::App& aRun, COptionValues& aValues, SimOptions& aOptions, const std::string& aDefaultModule) {
  Faults& faults = aOptions.faults;
  OutputOptions& output = aOptions.output;
  SoakOptions& soak = aOptions.soak;
  auto integer = [](int64_t aLow, int64_t aHigh, auto& aTarget) {
    return [aLow, aHigh, &aTarget](const std::string& aText, std::string& aWhy) {
      int64_t value = 0;
      if (!ParseInteger(aText, aLow, aHigh, value, aWhy)) return false;
      aTarget = static_cast<std::remove_reference_t<decltype(aTarget)>>(value);
      return true;
    };
  };
  auto real = [](double aLow, double aHigh, double& aTarget) {
    return [aLow, aHigh, &aTarget](const std::string& aText, std::string& aWhy) {
      return ParseReal(aText, aLow, aHigh, aTarget, aWhy);
    };
  };
  auto seconds = [](double& aTarget) {
    return [&aTarget](const std::string& aText, std::string& aWhy) { return Seconds(aText, aTarget, aWhy); };
  };
  auto windows = [](std::vector<TimeWindow>& aTarget) {
    return [&aTarget](const std::string& aText, std::string& aWhy) { return Window(aText, aTarget, aWhy); };
  };
  const std::string times = "seconds from 0 to 1209600 (14 days)";
  // A clock option notes that it was given: a trace that names its clock refuses it.
  auto given = [&aOptions](const char* aName, const std::function<bool(const std::string&, std::string&)>& aConvert) {
    return [&aOptions, aName, aConvert](const std::string& aText, std::string& aWhy) {
      aOptions.clock.given.push_back(aName);
      return aConvert(aText, aWhy);
    };
  };

  aRun.add_option("--module", aOptions.modulePath, "library to load (default " + aDefaultModule + ")")
      ->type_name("PATH")
      ->group("Module and feature");
  aRun.add_option_function<std::string>(
          "--diversity",
          [&aOptions](const std::string& aText) {
            aOptions.diversity = aText;
            aOptions.hasDiversity = true;
          },
          "the feature's \"diversity\" property: CAN, EXTERNAL, USB, ... (absent by default, which the module "
          "treats as CAN)")
      ->type_name("VALUE")
      ->group("Module and feature");

  aValues
      .Add(aRun, "--seed", "N", "seed of the built-in drive (default 1)", "a whole number >= 0",
           [&aOptions](const std::string& aText, std::string& aWhy) {
             return ParseUnsigned(aText, UINT64_MAX, aOptions.seed, aWhy);
           })
      ->group("Drive");
  aValues
      .Add(aRun, "--duration", "SECONDS", "length of the built-in drive (default 300)",
           "seconds, above 0 and at most 14 days",
           [&aOptions](const std::string& aText, std::string& aWhy) {
             if (!ParseReal(aText, 0, kLongestDrive, aOptions.duration, aWhy)) return false;
             return aOptions.duration > 0 || (aWhy = "must be above 0", false);
           })
      ->group("Drive");
  aRun.add_option("--trace", aOptions.tracePath,
                  "replay a recorded drive (CSV, see README; - for standard input); the whole file is checked "
                  "first, a bad row stops with exit status 4")
      ->type_name("FILE")
      ->group("Drive");
  aRun.add_option("--record", output.recordPath,
                  "write the records the service sent, as a replayable trace (- for standard output)")
      ->type_name("FILE")
      ->group("Drive");
  aValues
      .Add(aRun, "--shift-stamps", "MS",
           "the service's clock reads MS more, and so do its stamps (they wrap at 2^32 ms): to try a wrap or a "
           "service that booted long before",
           "milliseconds from 0 to 4294967295",
           [&aOptions](const std::string& aText, std::string& aWhy) {
             return ParseUnsigned(aText, 4294967295ULL, aOptions.clock.stampShift, aWhy);
           })
      ->group("Drive");

  const std::string replayGroup = "Replay (of a --trace)";
  aRun.add_flag_callback(
          "--realtime", [&aOptions] { aOptions.replay.rate = 1; }, "run at wall-clock speed: --rate 1")
      ->group(replayGroup);
  aValues
      .Add(aRun, "--rate", "FACTOR",
           "simulated seconds per wall-clock second: 1 is wall-clock speed, 10 ten times faster (default: as "
           "fast as possible)",
           "a factor above 0, at most 1000",
           [&aOptions](const std::string& aText, std::string& aWhy) {
             if (!ParseReal(aText, 0, 1000, aOptions.replay.rate, aWhy)) return false;
             return aOptions.replay.rate > 0 || (aWhy = "must be above 0", false);
           })
      ->group(replayGroup);
  aValues
      .Add(aRun, "--start", "SECONDS",
           "begin this far into the recording (from its first stamp): the head unit starts then", times,
           seconds(aOptions.replay.start))
      ->group(replayGroup);
  aValues
      .Add(aRun, "--end", "SECONDS", "end this far into the recording (from its first stamp)", times,
           seconds(aOptions.replay.end))
      ->group(replayGroup);
  aValues
      .Add(aRun, "--loop", "N", "replay the recording N times, each after the last on the same clocks (default 1)",
           "a whole number from 1 to 100000", integer(1, 100000, aOptions.replay.loops))
      ->group(replayGroup);

  aValues
      .Add(aRun, "--peer-offset", "MS", "local minus peer clock at the start (default 2500)",
           "milliseconds from 0 to 50000", given("--peer-offset", integer(0, 50000, aOptions.clock.peerOffset)))
      ->group("Clocks");
  aValues
      .Add(aRun, "--peer-drift", "PPM", "peer clock drift (default 40)", "ppm from -1000 to 1000",
           given("--peer-drift", real(-1000, 1000, aOptions.clock.peerDriftPpm)))
      ->group("Clocks");
  aValues
      .Add(aRun, "--sync-latency", "MS", "delay of the peer's answer to a kick (default 20)",
           "milliseconds from 0 to 900", given("--sync-latency", integer(0, 900, aOptions.clock.syncLatency)))
      ->group("Clocks");

  const std::string faultGroup = "Faults (times in seconds from the start, at most 14 days)";
  aValues
      .Add(aRun, "--service-leave", "T[:T2]", "the sensor service leaves at T (and returns at T2)",
           "SECONDS or SECONDS:SECONDS (" + times + ")", windows(faults.serviceLeaves))
      ->group(faultGroup)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  aValues
      .Add(aRun, "--clock-sync-loss", "T[:T2]",
           "kicks are no longer answered from T (until T2); with EXTERNAL the clock-sync service leaves",
           "SECONDS or SECONDS:SECONDS (" + times + ")", windows(faults.clockSyncLosses))
      ->group(faultGroup)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  aValues
      .Add(aRun, "--time-jump", "T:MS", "from T on the service's time stamps jump by MS (negative: back)",
           "SECONDS:MILLISECONDS (" + times + "; a jump within +-4294967295 ms)",
           [&faults](const std::string& aText, std::string& aWhy) {
             const size_t colon = aText.find(':');
             if (colon == std::string::npos) return aWhy = "no ':'", false;
             TimeJump jump;
             if (!Seconds(aText.substr(0, colon), jump.at, aWhy)) return false;
             if (!ParseInteger(aText.substr(colon + 1), -4294967295LL, 4294967295LL, jump.delta, aWhy)) return false;
             faults.timeJumps.push_back(jump);
             return true;
           })
      ->group(faultGroup)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  aValues
      .Add(aRun, "--late-client", "T", "the client connects at T instead of at the start", times,
           seconds(faults.clientStart))
      ->group(faultGroup);
  aValues
      .Add(aRun, "--second-client", "T", "a second client connects at T and subscribes too", times,
           seconds(faults.secondClientAt))
      ->group(faultGroup);
  aValues
      .Add(aRun, "--client-rejoin", "T", "the client leaves at T and subscribes again 1 s later", times,
           seconds(faults.clientRejoinAt))
      ->group(faultGroup);
  aRun.add_flag("--main-unit-unplugged", aOptions.mainUnitUnplugged,
                "the main unit is not plugged in (no CLK_SYNC pulses)")
      ->group(faultGroup);

  const std::string soakGroup = "Soak (long runs, e.g. --duration 86400)";
  aRun.add_flag("--soak", soak.enabled,
                "check instead of print: resident memory sampled every simulated minute must stay flat after the "
                "first one; every sample fed while the delivery gate is open must reach every subscribed client, "
                "in synchronised time; every replay, and a final one, must be exactly the last minute fed. "
                "Figures on standard error (and in --summary-json); exit status 3 when a check fails")
      ->group(soakGroup);
  aValues
      .Add(aRun, "--rss-tolerance", "KB", "growth allowed after the first minute (default 256)",
           "kilobytes from 0 to 1e9", real(0, 1e9, soak.rssToleranceKb))
      ->group(soakGroup);
  aValues
      .Add(aRun, "--inject-leak", "KB", "to see the checks work: the simulated host leaks KB every simulated minute",
           "a whole number from 1 to 1000000", integer(1, 1000000, soak.injectLeakKb))
      ->group(soakGroup);
  aValues
      .Add(aRun, "--inject-loss", "N", "to see the checks work: the first client loses every N-th sample it receives",
           "a whole number from 1 to 1000000", integer(1, 1000000, soak.injectLoss))
      ->group(soakGroup);

  aRun.add_option("-o,--out", output.outPath,
                  "samples to FILE, - for standard output (default: standard output, or "
                  "positioning-sim-samples.csv when that is a terminal)")
      ->type_name("FILE")
      ->group("Output");
  aValues
      .Add(aRun, "--format", "csv|jsonl",
           "sample format (default csv: client,sensor_type,time_stamp,value_count,values)", "csv or jsonl",
           [&output](const std::string& aText, std::string&) {
             if (aText != "csv" && aText != "jsonl") return false;
             output.format = aText == "csv" ? OutputFormat::Csv : OutputFormat::Jsonl;
             return true;
           })
      ->group("Output");
  aRun.add_option("--log", output.logTarget,
                  "the module's log records: readable lines to FILE (- for standard output; each led by the "
                  "simulated time in ms), DLT messages to a .dlt file (dlt:FILE.dlt) or to a running DLT daemon "
                  "(dlt); DLT: application PSIM, contexts POSI and FFW, time stamps in simulated time")
      ->type_name("FILE|dlt:FILE.dlt|dlt")
      ->group("Output");
  aValues
      .Add(aRun, "--log-level", "LEVEL", "error, info, info2 or interface (default: interface, all)",
           "error, info, info2 or interface",
           [&output](const std::string& aText, std::string&) { return LogLevel(aText, output.logMask); })
      ->group("Output");
  aValues
      .Add(aRun, "--plot", "FILE.png|.svg", "plot angular rate, distance pulses and sync offset",
           "a file ending in .png or .svg",
           [&output](const std::string& aText, std::string&) {
             output.plotPath = aText;
             return EndsWith(aText, ".png") || EndsWith(aText, ".svg");
           })
      ->group("Output");
  aRun.add_option("--summary-json", output.summaryJsonPath, "the summary as JSON as well (- for standard output)")
      ->type_name("FILE")
      ->group("Output");
  aRun.add_option("--result-dir", output.resultDir,
                  "write the drive's result into DIR (created when missing): samples.csv, summary.json (the same "
                  "bytes for the same drive and build, with the samples' SHA-256), path.csv, log.txt (--log-level, "
                  "default error) and run.json (wall time, host, module); each file is renamed into place when "
                  "complete. Replaces --out, --summary-json, --path and --log")
      ->type_name("DIR")
      ->group("Output");
  aRun.add_flag("-q,--quiet", output.quiet, "no summary on standard error")->group("Output");
}

}  // namespace

const char* SimVersion() { return kVersion; }

int ParseCommandLine(int aArgc, char** aArgv, const std::string& aDefaultModule, SimOptions& aOptions) {
  aOptions.modulePath = aDefaultModule;
  CLI::App app(
      "Loads the positioning module as the feature daemon does, drives it with simulated services and "
      "clients on a simulated clock, and prints every sample a client receives. Without options: a "
      "5-minute built-in urban drive from the CAN source.",
      "positioning-sim");
  app.set_version_flag("--version", kVersion);
  app.require_subcommand(0, 1);
  app.footer(kFooter);
  CLI::App* run = app.add_subcommand("run", "run a drive through the module (the default)");
  run->footer(kFooter);
  COptionValues values;
  AddOptions(*run, values, aOptions, aDefaultModule);
  AddPathOptions(*run, values, aOptions.path);
  CLI::App* import = AddImportCommand(app, aOptions.import);
  CLI::App* compare = AddCompareCommand(app, aOptions.compare);
  CLI::App* batch = AddBatchCommand(app, aOptions.batch);

  // `run` is the default: a command line without a subcommand is one for `run`.
  std::vector<std::string> arguments;
  for (int i = 1; i < aArgc; ++i) arguments.push_back(aArgv[i]);
  const bool topLevel =
      !arguments.empty() && (arguments[0] == "run" || arguments[0] == "import" || arguments[0] == "compare" ||
                             arguments[0] == "batch" || arguments[0] == "--version");
  if (!topLevel) arguments.insert(arguments.begin(), "run");
  std::reverse(arguments.begin(), arguments.end());  // CLI11 takes them last first
  try {
    app.parse(arguments);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    fprintf(stderr, "positioning-sim: %s (see --help)\n", e.what());
    return kExitUsage;
  }
  std::string error;
  if (import->parsed()) {
    aOptions.importing = true;
    if (ResolveImportOptions(aOptions.import, error)) return -1;
    fprintf(stderr, "positioning-sim import: %s (see import --help)\n", error.c_str());
    return kExitUsage;
  }
  if (compare->parsed() || batch->parsed()) {
    aOptions.comparing = compare->parsed();
    aOptions.batching = batch->parsed();
    return -1;
  }
  if (!values.Convert(error)) {
    fprintf(stderr, "positioning-sim: %s\n", error.c_str());
    return kExitUsage;
  }
  // What only the built-in drive has, and what only a trace has.
  const bool trace = !aOptions.tracePath.empty();
  for (const char* option : {"--duration", "--seed"}) {
    if (trace && run->count(option) > 0) {
      fprintf(stderr,
              "positioning-sim: %s does not apply to a trace: it is the built-in drive's (see --start, --end)\n",
              option);
      return kExitUsage;
    }
  }
  for (const char* option : {"--start", "--end", "--loop", "--rate"}) {
    if (!trace && std::string(option) != "--rate" && run->count(option) > 0) {
      fprintf(stderr, "positioning-sim: %s applies to a trace (--trace); the built-in drive has --duration\n", option);
      return kExitUsage;
    }
  }
  if (aOptions.replay.end >= 0 && aOptions.replay.end <= aOptions.replay.start) {
    fprintf(stderr, "positioning-sim: --end must come after --start\n");
    return kExitUsage;
  }
  if (!aOptions.path.truthPath.empty() && aOptions.tracePath.empty()) {
    fprintf(stderr, "positioning-sim: --truth goes with --trace: the built-in drive knows its own truth\n");
    return kExitUsage;
  }
  if (!aOptions.output.resultDir.empty()) {
    for (const char* option : {"--out", "--summary-json", "--path", "--log", "--format", "--soak"}) {
      if (run->count(option) > 0) {
        fprintf(stderr,
                "positioning-sim: --result-dir writes the samples, summary, path and log itself: leave out %s\n",
                option);
        return kExitUsage;
      }
    }
    // A library of long drives: the full log would outweigh everything else.
    if (run->count("--log-level") == 0) aOptions.output.logMask = contract::kLogMaskError;
  }
  if (aOptions.soak.enabled && !aOptions.output.outPath.empty()) {
    fprintf(stderr, "positioning-sim: --soak checks the samples instead of writing them: leave out --out\n");
    return kExitUsage;
  }
  return -1;
}

}  // namespace sim
