#include "SimOptions.h"

#include <errno.h>
#include <stdlib.h>

namespace sim {

namespace {

bool ParseDouble(const std::string& aText, double& aValue) {
  if (aText.empty()) return false;
  char* end = nullptr;
  errno = 0;
  aValue = strtod(aText.c_str(), &end);
  return errno == 0 && end != nullptr && *end == '\0';
}

bool ParseInt(const std::string& aText, int64_t& aValue) {
  if (aText.empty()) return false;
  char* end = nullptr;
  errno = 0;
  aValue = strtoll(aText.c_str(), &end, 10);
  return errno == 0 && end != nullptr && *end == '\0';
}

// "START" or "START:END", seconds.
bool ParseWindow(const std::string& aText, TimeWindow& aWindow) {
  const size_t colon = aText.find(':');
  if (!ParseDouble(aText.substr(0, colon), aWindow.start) || aWindow.start < 0) return false;
  if (colon == std::string::npos) return true;
  return ParseDouble(aText.substr(colon + 1), aWindow.end) && aWindow.end > aWindow.start;
}

// "AT:DELTA": seconds, milliseconds.
bool ParseJump(const std::string& aText, TimeJump& aJump) {
  const size_t colon = aText.find(':');
  if (colon == std::string::npos) return false;
  return ParseDouble(aText.substr(0, colon), aJump.at) && aJump.at >= 0 &&
         ParseInt(aText.substr(colon + 1), aJump.delta);
}

bool ParseLogLevel(const std::string& aText, uint32_t& aMask) {
  if (aText == "error") return aMask = 1, true;
  if (aText == "info") return aMask = 1 | 4, true;
  if (aText == "info2") return aMask = 1 | 4 | 8, true;
  if (aText == "interface" || aText == "all") return aMask = 1 | 4 | 8 | 16, true;
  return false;
}

}  // namespace

bool ParseOptions(int aArgc, char** aArgv, SimOptions& aOptions, std::string& aError) {
  for (int i = 1; i < aArgc; ++i) {
    const std::string option = aArgv[i];
    auto value = [&](std::string& aValue) {
      if (i + 1 >= aArgc) {
        aError = option + " needs a value";
        return false;
      }
      aValue = aArgv[++i];
      return true;
    };
    std::string text;
    if (option == "--help" || option == "-h") {
      aOptions.help = true;
    } else if (option == "--module") {
      if (!value(aOptions.modulePath)) return false;
    } else if (option == "--diversity") {
      if (!value(aOptions.diversity)) return false;
      aOptions.hasDiversity = true;
    } else if (option == "--realtime") {
      aOptions.realtime = true;
    } else if (option == "--seed") {
      int64_t seed;
      if (!value(text)) return false;
      if (!ParseInt(text, seed) || seed < 0) return aError = "--seed takes a whole number >= 0: " + text, false;
      aOptions.seed = static_cast<uint64_t>(seed);
    } else if (option == "--duration") {
      if (!value(text)) return false;
      if (!ParseDouble(text, aOptions.duration) || aOptions.duration <= 0 || aOptions.duration > 14 * 86400.0)
        return aError = "--duration takes seconds, above 0 and at most 14 days: " + text, false;
    } else if (option == "--trace") {
      if (!value(aOptions.tracePath)) return false;
    } else if (option == "--record") {
      if (!value(aOptions.recordPath)) return false;
    } else if (option == "--out") {
      if (!value(aOptions.outPath)) return false;
    } else if (option == "--format") {
      if (!value(text)) return false;
      if (text == "csv") {
        aOptions.format = OutputFormat::Csv;
      } else if (text == "jsonl") {
        aOptions.format = OutputFormat::Jsonl;
      } else {
        return aError = "--format takes csv or jsonl: " + text, false;
      }
    } else if (option == "--log") {
      if (!value(aOptions.logTarget)) return false;
    } else if (option == "--log-level") {
      if (!value(text)) return false;
      if (!ParseLogLevel(text, aOptions.logMask))
        return aError = "--log-level takes error, info, info2 or interface: " + text, false;
    } else if (option == "--plot") {
      if (!value(aOptions.plotPath)) return false;
      const std::string& path = aOptions.plotPath;
      const bool png = path.size() > 4 && path.compare(path.size() - 4, 4, ".png") == 0;
      const bool svg = path.size() > 4 && path.compare(path.size() - 4, 4, ".svg") == 0;
      if (!png && !svg) return aError = "--plot takes a file ending in .png or .svg: " + path, false;
    } else if (option == "--summary-json") {
      if (!value(aOptions.summaryJsonPath)) return false;
    } else if (option == "--peer-offset") {
      if (!value(text)) return false;
      if (!ParseInt(text, aOptions.peerOffset) || aOptions.peerOffset < 0 || aOptions.peerOffset > 50000)
        return aError = "--peer-offset takes milliseconds from 0 to 50000: " + text, false;
    } else if (option == "--peer-drift") {
      if (!value(text)) return false;
      if (!ParseDouble(text, aOptions.peerDriftPpm) || aOptions.peerDriftPpm < -1000 || aOptions.peerDriftPpm > 1000)
        return aError = "--peer-drift takes ppm from -1000 to 1000: " + text, false;
    } else if (option == "--sync-latency") {
      int64_t latency;
      if (!value(text)) return false;
      if (!ParseInt(text, latency) || latency < 0 || latency > 900)
        return aError = "--sync-latency takes milliseconds from 0 to 900: " + text, false;
      aOptions.syncLatency = static_cast<uint32_t>(latency);
    } else if (option == "--service-leave") {
      TimeWindow window;
      if (!value(text)) return false;
      if (!ParseWindow(text, window))
        return aError = "--service-leave takes SECONDS or SECONDS:SECONDS: " + text, false;
      aOptions.serviceLeaves.push_back(window);
    } else if (option == "--clock-sync-loss") {
      TimeWindow window;
      if (!value(text)) return false;
      if (!ParseWindow(text, window))
        return aError = "--clock-sync-loss takes SECONDS or SECONDS:SECONDS: " + text, false;
      aOptions.clockSyncLosses.push_back(window);
    } else if (option == "--time-jump") {
      TimeJump jump;
      if (!value(text)) return false;
      if (!ParseJump(text, jump)) return aError = "--time-jump takes SECONDS:MILLISECONDS: " + text, false;
      aOptions.timeJumps.push_back(jump);
    } else if (option == "--late-client") {
      if (!value(text)) return false;
      if (!ParseDouble(text, aOptions.clientStart) || aOptions.clientStart < 0)
        return aError = "--late-client takes seconds: " + text, false;
    } else if (option == "--second-client") {
      if (!value(text)) return false;
      if (!ParseDouble(text, aOptions.secondClientAt) || aOptions.secondClientAt < 0)
        return aError = "--second-client takes seconds: " + text, false;
    } else if (option == "--client-rejoin") {
      if (!value(text)) return false;
      if (!ParseDouble(text, aOptions.clientRejoinAt) || aOptions.clientRejoinAt < 0)
        return aError = "--client-rejoin takes seconds: " + text, false;
    } else if (option == "--main-unit-unplugged") {
      aOptions.mainUnitUnplugged = true;
    } else if (option == "--soak") {
      aOptions.soak = true;
    } else if (option == "--rss-tolerance") {
      if (!value(text)) return false;
      if (!ParseDouble(text, aOptions.rssToleranceKb) || aOptions.rssToleranceKb < 0)
        return aError = "--rss-tolerance takes kilobytes >= 0: " + text, false;
    } else if (option == "--inject-leak" || option == "--inject-loss") {
      int64_t amount;
      if (!value(text)) return false;
      if (!ParseInt(text, amount) || amount < 1 || amount > 1000000)
        return aError = option + " takes a whole number from 1 to 1000000: " + text, false;
      (option == "--inject-leak" ? aOptions.injectLeakKb : aOptions.injectLoss) = static_cast<uint32_t>(amount);
    } else if (option == "--quiet" || option == "-q") {
      aOptions.quiet = true;
    } else {
      aError = "unknown option " + option + " (see --help)";
      return false;
    }
  }
  return true;
}

std::string Usage(const std::string& aDefaultModule) {
  return "Usage: positioning-sim [options]\n"
         "\n"
         "Loads the positioning module as the feature daemon does, drives it with simulated\n"
         "services and clients on a simulated clock, and prints every sample a client\n"
         "receives. Without options: a 5-minute built-in urban drive from the CAN source.\n"
         "\n"
         "Module and feature:\n"
         "  --module PATH            library to load (default " +
         aDefaultModule +
         ")\n"
         "  --diversity VALUE        the feature's \"diversity\" property: CAN, EXTERNAL, USB, ...\n"
         "                           (absent by default, which the module treats as CAN)\n"
         "Drive:\n"
         "  --seed N                 seed of the built-in drive (default 1)\n"
         "  --duration SECONDS       length of the built-in drive (default 300)\n"
         "  --trace FILE             replay a recorded drive (CSV, see README); the whole file\n"
         "                           is checked first, a bad row stops with exit status 2\n"
         "  --record FILE            write the records the service sent, as a replayable trace\n"
         "  --realtime               run at wall-clock speed (default: as fast as possible)\n"
         "Clocks:\n"
         "  --peer-offset MS         local minus peer clock at the start (default 2500)\n"
         "  --peer-drift PPM         peer clock drift (default 40)\n"
         "  --sync-latency MS        delay of the peer's answer to a kick (default 20)\n"
         "Faults (times in seconds from the start):\n"
         "  --service-leave T[:T2]   the sensor service leaves at T (and returns at T2)\n"
         "  --clock-sync-loss T[:T2] kicks are no longer answered from T (until T2); with\n"
         "                           EXTERNAL the clock-sync service leaves\n"
         "  --time-jump T:MS         from T on the service's time stamps jump by MS (negative:\n"
         "                           back)\n"
         "  --late-client T          the client connects at T instead of at the start\n"
         "  --second-client T        a second client connects at T and subscribes too\n"
         "  --client-rejoin T        the client leaves at T and subscribes again 1 s later\n"
         "  --main-unit-unplugged    the main unit is not plugged in (no CLK_SYNC pulses)\n"
         "Soak (long runs, e.g. --duration 86400):\n"
         "  --soak                   check instead of print: resident memory sampled every\n"
         "                           simulated minute must stay flat after the first one;\n"
         "                           every sample fed while the delivery gate is open must\n"
         "                           reach every subscribed client, in synchronised time;\n"
         "                           every replay, and a final one, must be exactly the last\n"
         "                           minute fed. Figures on standard error (and in\n"
         "                           --summary-json); exit status 3 when a check fails\n"
         "  --rss-tolerance KB       growth allowed after the first minute (default 256)\n"
         "  --inject-leak KB         to see the checks work: the simulated host leaks KB\n"
         "                           every simulated minute\n"
         "  --inject-loss N          to see the checks work: the first client loses every\n"
         "                           N-th sample it receives\n"
         "Output:\n"
         "  --out FILE               samples to FILE instead of standard output\n"
         "  --format csv|jsonl       sample format (default csv:\n"
         "                           client,sensor_type,time_stamp,value_count,values)\n"
         "  --log FILE|dlt           the module's log records: readable lines to FILE, or to a\n"
         "                           running DLT daemon (application PSIM, context POSI)\n"
         "  --log-level LEVEL        error, info, info2 or interface (default: interface, all)\n"
         "  --plot FILE.png|.svg     plot angular rate, distance pulses and sync offset\n"
         "  --summary-json FILE      the summary as JSON as well\n"
         "  --quiet                  no summary on standard error\n"
         "  --help                   this text\n"
         "\n"
         "Example:\n"
         "  positioning-sim --diversity EXTERNAL --late-client 90 --log run.log --plot run.png\n";
}

}  // namespace sim
