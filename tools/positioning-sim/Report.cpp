#include "Report.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "SimulatedPeers.h"

namespace sim {

namespace {

std::string JsonString(const std::string& aText) {
  std::string quoted = "\"";
  for (char c : aText) {
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (c == '\n') {
      quoted += "\\n";
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char buffer[8];
      snprintf(buffer, sizeof buffer, "\\u%04x", c);
      quoted += buffer;
    } else {
      quoted += c;
    }
  }
  return quoted + "\"";
}

}  // namespace

CSampleWriter::CSampleWriter(FILE* aFile, OutputFormat aFormat) : iFile(aFile), iFormat(aFormat) {
  if (iFormat == OutputFormat::Csv) fprintf(iFile, "client,sensor_type,time_stamp,value_count,values\n");
}

void CSampleWriter::Write(const std::string& aClient, const host::ReceivedSample& aSample, bool aReplayed) {
  if (iFormat == OutputFormat::Csv) {
    fprintf(iFile, "%s,%u,%llu,%zu,", aClient.c_str(), aSample.type, static_cast<unsigned long long>(aSample.timeStamp),
            aSample.values.size());
    for (size_t i = 0; i < aSample.values.size(); ++i) fprintf(iFile, i == 0 ? "%d" : ";%d", aSample.values[i]);
    fputc('\n', iFile);
  } else {
    fprintf(iFile, "{\"client\":%s,\"sensor_type\":%u,\"time_stamp\":%llu,\"value_count\":%zu,\"values\":[",
            JsonString(aClient).c_str(), aSample.type, static_cast<unsigned long long>(aSample.timeStamp),
            aSample.values.size());
    for (size_t i = 0; i < aSample.values.size(); ++i) fprintf(iFile, i == 0 ? "%d" : ",%d", aSample.values[i]);
    fprintf(iFile, "],\"replayed\":%s}\n", aReplayed ? "true" : "false");
  }
}

void PrintSummary(FILE* aFile, const Summary& aSummary) {
  fprintf(aFile, "== positioning-sim summary\n");
  fprintf(aFile, "source:               %s, %s\n", aSummary.source.c_str(), aSummary.drive.c_str());
  fprintf(aFile, "simulated:            %.1f s in %.3f s wall time\n", aSummary.simulatedSeconds, aSummary.wallSeconds);
  fprintf(aFile, "records fed:          %llu (not sent while the service was away: %llu)\n",
          static_cast<unsigned long long>(aSummary.recordsFed),
          static_cast<unsigned long long>(aSummary.recordsNotSent));
  for (const ClientSummary& client : aSummary.clients) {
    fprintf(aFile, "samples delivered:    %s: type 1: %llu, type 2: %llu, other: %llu (replayed: %llu)\n",
            client.name.c_str(), static_cast<unsigned long long>(client.samples[0]),
            static_cast<unsigned long long>(client.samples[1]), static_cast<unsigned long long>(client.samples[2]),
            static_cast<unsigned long long>(client.replayed));
  }
  fprintf(aFile, "samples replayed:     %llu\n", static_cast<unsigned long long>(aSummary.replayed));
  if (aSummary.synchronised) {
    fprintf(aFile, "sync offset:          %lld ms after the first sync\n",
            static_cast<long long>(aSummary.firstSyncOffset));
  } else {
    fprintf(aFile, "sync offset:          never synchronised\n");
  }
  fprintf(aFile, "offset history:       ");
  const size_t shown = aSummary.offsets.size() < 8 ? aSummary.offsets.size() : 8;
  for (size_t i = 0; i < shown; ++i) {
    fprintf(aFile, "%s%.1f s: %lld ms", i == 0 ? "" : ", ", aSummary.offsets[i].seconds,
            static_cast<long long>(aSummary.offsets[i].offset));
  }
  if (aSummary.offsets.size() > shown) fprintf(aFile, ", ... (%zu changes)", aSummary.offsets.size());
  fprintf(aFile, "%s\n", aSummary.offsets.empty() ? "none" : "");
  fprintf(aFile, "time stamp error:     mean %.2f ms, max |error| %lld ms over %llu live samples\n", aSummary.errorMean,
          static_cast<long long>(aSummary.errorMaxAbs), static_cast<unsigned long long>(aSummary.errorCount));
  fprintf(aFile, "supervision messages: %llu\n", static_cast<unsigned long long>(aSummary.supervisionMessages));
  const SoakSummary& soak = aSummary.soak;
  if (!soak.enabled) return;
  fprintf(aFile, "== soak\n");
  fprintf(aFile,
          "resident memory:      %llu kB after the first minute, at most %llu kB after it (%+lld kB, "
          "allowed %.0f kB) over %zu samples: %s\n",
          static_cast<unsigned long long>(soak.rssFirstMinuteKb), static_cast<unsigned long long>(soak.rssMaxKb),
          static_cast<long long>(soak.rssGrowthKb), soak.rssToleranceKb, soak.rssKb.size(),
          soak.RssFlat() ? "flat" : "GROWING");
  fprintf(aFile, "delivery:             %llu records fed with the gate open, %llu samples checked, %llu wrong\n",
          static_cast<unsigned long long>(soak.recordsWhileGateOpen),
          static_cast<unsigned long long>(soak.deliveriesChecked),
          static_cast<unsigned long long>(soak.deliveryErrors));
  fprintf(aFile, "replays:              %llu checked, %llu wrong\n",
          static_cast<unsigned long long>(soak.replaysChecked), static_cast<unsigned long long>(soak.replayErrors));
  if (soak.finalReplayDone) {
    fprintf(aFile, "last minute:          final replay of %llu samples, %s the last %llu fed\n",
            static_cast<unsigned long long>(soak.finalReplaySamples),
            soak.replayErrors == 0 ? "equal to" : "NOT equal to", static_cast<unsigned long long>(soak.lastMinuteFed));
  } else {
    fprintf(aFile, "last minute:          no final replay (the delivery gate is closed)\n");
  }
  if (!soak.firstDeliveryError.empty()) fprintf(aFile, "first mismatch:       %s\n", soak.firstDeliveryError.c_str());
  fprintf(aFile, "soak:                 %s\n", soak.Passed() ? "passed" : "FAILED");
}

bool WriteSummaryJson(const std::string& aPath, const Summary& aSummary, std::string& aError) {
  FILE* file = fopen(aPath.c_str(), "w");
  if (file == nullptr) return aError = aPath + ": " + strerror(errno), false;
  fprintf(file, "{\"source\":%s,\"drive\":%s,\"records_fed\":%llu,\"records_not_sent\":%llu,\"clients\":[",
          JsonString(aSummary.source).c_str(), JsonString(aSummary.drive).c_str(),
          static_cast<unsigned long long>(aSummary.recordsFed),
          static_cast<unsigned long long>(aSummary.recordsNotSent));
  for (size_t i = 0; i < aSummary.clients.size(); ++i) {
    const ClientSummary& client = aSummary.clients[i];
    fprintf(file, "%s{\"name\":%s,\"type1\":%llu,\"type2\":%llu,\"other\":%llu,\"replayed\":%llu}", i == 0 ? "" : ",",
            JsonString(client.name).c_str(), static_cast<unsigned long long>(client.samples[0]),
            static_cast<unsigned long long>(client.samples[1]), static_cast<unsigned long long>(client.samples[2]),
            static_cast<unsigned long long>(client.replayed));
  }
  fprintf(file, "],\"replayed\":%llu,\"synchronised\":%s,\"first_sync_offset\":%lld,\"offsets\":[",
          static_cast<unsigned long long>(aSummary.replayed), aSummary.synchronised ? "true" : "false",
          static_cast<long long>(aSummary.firstSyncOffset));
  for (size_t i = 0; i < aSummary.offsets.size(); ++i) {
    fprintf(file, "%s[%.3f,%lld]", i == 0 ? "" : ",", aSummary.offsets[i].seconds,
            static_cast<long long>(aSummary.offsets[i].offset));
  }
  fprintf(file,
          "],\"error_mean\":%.3f,\"error_max_abs\":%lld,\"error_count\":%llu,\"supervision_messages\":%llu,"
          "\"simulated_seconds\":%.3f,\"wall_seconds\":%.3f",
          aSummary.errorMean, static_cast<long long>(aSummary.errorMaxAbs),
          static_cast<unsigned long long>(aSummary.errorCount),
          static_cast<unsigned long long>(aSummary.supervisionMessages), aSummary.simulatedSeconds,
          aSummary.wallSeconds);
  const SoakSummary& soak = aSummary.soak;
  if (soak.enabled) {
    fprintf(file,
            ",\"soak\":{\"passed\":%s,\"rss_first_minute_kb\":%llu,\"rss_max_kb\":%llu,\"rss_growth_kb\":%lld,"
            "\"rss_tolerance_kb\":%.0f,\"rss_samples\":%zu,\"records_gate_open\":%llu,\"deliveries_checked\":%llu,"
            "\"delivery_errors\":%llu,\"replays_checked\":%llu,\"replay_errors\":%llu,\"final_replay\":%s,"
            "\"final_replay_samples\":%llu,\"last_minute_fed\":%llu,\"first_mismatch\":%s}",
            soak.Passed() ? "true" : "false", static_cast<unsigned long long>(soak.rssFirstMinuteKb),
            static_cast<unsigned long long>(soak.rssMaxKb), static_cast<long long>(soak.rssGrowthKb),
            soak.rssToleranceKb, soak.rssKb.size(), static_cast<unsigned long long>(soak.recordsWhileGateOpen),
            static_cast<unsigned long long>(soak.deliveriesChecked),
            static_cast<unsigned long long>(soak.deliveryErrors), static_cast<unsigned long long>(soak.replaysChecked),
            static_cast<unsigned long long>(soak.replayErrors), soak.finalReplayDone ? "true" : "false",
            static_cast<unsigned long long>(soak.finalReplaySamples),
            static_cast<unsigned long long>(soak.lastMinuteFed), JsonString(soak.firstDeliveryError).c_str());
    fprintf(file, ",\"rss_kb\":[");
    for (size_t i = 0; i < soak.rssKb.size(); ++i)
      fprintf(file, "%s%llu", i == 0 ? "" : ",", static_cast<unsigned long long>(soak.rssKb[i]));
    fprintf(file, "]");
  }
  fprintf(file, "}\n");
  if (fclose(file) != 0) return aError = aPath + ": " + strerror(errno), false;
  return true;
}

bool WritePlot(const std::string& aPath, const std::vector<PlotPoint>& aPoints,
               const std::vector<OffsetPoint>& aOffsets, double aSeconds, std::string& aError) {
  char dataPath[] = "/tmp/positioning-sim-plot-XXXXXX";
  const int dataFd = mkstemp(dataPath);
  if (dataFd < 0) return aError = std::string("plot data: ") + strerror(errno), false;
  close(dataFd);
  const std::string offsetPath = std::string(dataPath) + ".offset";
  const std::string scriptPath = std::string(dataPath) + ".gp";
  {
    std::ofstream data(dataPath);
    for (const PlotPoint& point : aPoints)
      data << point.seconds << ' ' << point.angularRate << ' ' << point.pulses << '\n';
    std::ofstream offsets(offsetPath);
    // A step line from each change to the next, and on to the end.
    for (size_t i = 0; i < aOffsets.size(); ++i) offsets << aOffsets[i].seconds << ' ' << aOffsets[i].offset << '\n';
    if (!aOffsets.empty()) offsets << aSeconds << ' ' << aOffsets.back().offset << '\n';
  }
  const bool svg = aPath.size() > 4 && aPath.compare(aPath.size() - 4, 4, ".svg") == 0;
  {
    std::ofstream script(scriptPath);
    script << (svg ? "set terminal svg size 1000,900 dynamic\n" : "set terminal pngcairo size 1000,900\n");
    script << "set output '" << aPath << "'\n"
           << "set multiplot layout 3,1 title 'positioning-sim drive'\n"
           << "set grid\nset xrange [0:" << aSeconds << "]\n"
           << "set xlabel 'time since feature start (s)'\n"
           << "set ylabel 'angular rate (raw)'\n"
           << "plot '" << dataPath << "' using 1:2 with lines title 'angular rate'\n"
           << "set ylabel 'distance pulses per record'\n"
           << "plot '" << dataPath << "' using 1:3 with steps title 'distance pulses'\n"
           << "set ylabel 'sync offset (ms)'\n";
    if (aOffsets.empty()) {
      script << "set label 1 'no sample delivered: no offset seen' at graph 0.4,0.5\n"
             << "plot 0 notitle with lines\n";
    } else {
      script << "plot '" << offsetPath << "' using 1:2 with steps title 'module time minus service time'\n";
    }
    script << "unset multiplot\n";
  }
  const std::string command = "gnuplot '" + scriptPath + "' 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  std::string output;
  if (pipe != nullptr) {
    char buffer[512];
    while (fgets(buffer, sizeof buffer, pipe) != nullptr) output += buffer;
  }
  const int status = pipe != nullptr ? pclose(pipe) : -1;
  unlink(dataPath);
  unlink(offsetPath.c_str());
  unlink(scriptPath.c_str());
  if (status != 0) {
    aError = "gnuplot failed (is gnuplot installed?): " + output;
    return false;
  }
  return true;
}

}  // namespace sim
