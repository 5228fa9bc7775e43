#include "SummaryReport.h"

#include <string.h>

namespace sim {

namespace {

using ull = unsigned long long;

void PrintSoak(FILE* aFile, const SoakSummary& aSoak) {
  fprintf(aFile, "== soak\n");
  fprintf(aFile,
          "resident memory:      %llu kB after the first minute, at most %llu kB after it (%+lld kB, "
          "allowed %.0f kB) over %zu samples: %s\n",
          static_cast<ull>(aSoak.rssFirstMinuteKb), static_cast<ull>(aSoak.rssMaxKb),
          static_cast<long long>(aSoak.rssGrowthKb), aSoak.rssToleranceKb, aSoak.rssKb.size(),
          aSoak.RssFlat() ? "flat" : "GROWING");
  fprintf(aFile, "delivery:             %llu records fed with the gate open, %llu samples checked, %llu wrong\n",
          static_cast<ull>(aSoak.recordsWhileGateOpen), static_cast<ull>(aSoak.deliveriesChecked),
          static_cast<ull>(aSoak.deliveryErrors));
  fprintf(aFile, "replays:              %llu checked, %llu wrong\n", static_cast<ull>(aSoak.replaysChecked),
          static_cast<ull>(aSoak.replayErrors));
  if (aSoak.finalReplayDone) {
    fprintf(aFile, "last minute:          final replay of %llu samples, %s the last %llu fed\n",
            static_cast<ull>(aSoak.finalReplaySamples), aSoak.replayErrors == 0 ? "equal to" : "NOT equal to",
            static_cast<ull>(aSoak.lastMinuteFed));
  } else {
    fprintf(aFile, "last minute:          no final replay (the delivery gate is closed)\n");
  }
  if (!aSoak.firstDeliveryError.empty()) fprintf(aFile, "first mismatch:       %s\n", aSoak.firstDeliveryError.c_str());
  fprintf(aFile, "soak:                 %s\n", aSoak.Passed() ? "passed" : "FAILED");
}

}  // namespace

void PrintSummary(FILE* aFile, const Summary& aSummary) {
  const RunFigures& figures = aSummary.figures;
  fprintf(aFile, "== positioning-sim summary\n");
  fprintf(aFile, "source:               %s, %s\n", aSummary.source.c_str(), aSummary.drive.c_str());
  if (!aSummary.noSource.empty()) fprintf(aFile, "no source:            %s\n", aSummary.noSource.c_str());
  fprintf(aFile, "simulated:            %.1f s in %.3f s wall time%s\n", aSummary.simulatedSeconds,
          aSummary.wallSeconds, aSummary.interruptedBy != 0 ? " (interrupted)" : "");
  fprintf(aFile, "records fed:          %llu (not sent %s: %llu)\n", static_cast<ull>(figures.recordsFed),
          aSummary.noSource.empty() ? "while the service was away" : "for want of a source",
          static_cast<ull>(figures.recordsNotSent));
  for (const ClientSummary& client : figures.clients) {
    fprintf(aFile, "samples delivered:    %s: type 1: %llu, type 2: %llu, other: %llu (replayed: %llu)\n",
            client.name.c_str(), static_cast<ull>(client.samples[0]), static_cast<ull>(client.samples[1]),
            static_cast<ull>(client.samples[2]), static_cast<ull>(client.replayed));
  }
  fprintf(aFile, "samples replayed:     %llu%s\n", static_cast<ull>(figures.replayed),
          figures.replayed > 0 ? " (on subscription the module replays its gyroscope minute, type 1, only)" : "");
  if (figures.synchronised) {
    fprintf(aFile, "sync offset:          %lld ms after the first sync\n",
            static_cast<long long>(figures.firstSyncOffset));
  } else {
    fprintf(aFile, "sync offset:          never synchronised\n");
  }
  fprintf(aFile, "offset history:       ");
  const size_t shown = figures.offsets.size() < 8 ? figures.offsets.size() : 8;
  for (size_t i = 0; i < shown; ++i) {
    fprintf(aFile, "%s%.1f s: %lld ms", i == 0 ? "" : ", ", figures.offsets[i].seconds,
            static_cast<long long>(figures.offsets[i].offset));
  }
  if (figures.offsetChanges > shown) fprintf(aFile, ", ... (%llu changes)", static_cast<ull>(figures.offsetChanges));
  fprintf(aFile, "%s\n", figures.offsets.empty() ? "none" : "");
  fprintf(aFile, "time stamp error:     mean %.2f ms, max |error| %lld ms over %llu live samples\n", figures.errorMean,
          static_cast<long long>(figures.errorMaxAbs), static_cast<ull>(figures.errorCount));
  if (figures.clockWraps > 0 || figures.stampsGoingBack > 0) {
    fprintf(aFile, "service clock:        wrapped at 2^32 ms %llu time(s)", static_cast<ull>(figures.clockWraps));
    if (figures.clockWraps > 0) fprintf(aFile, ", first at %.1f s", figures.firstWrapSeconds);
    fprintf(aFile, "; %llu live samples stamped before the one before them\n",
            static_cast<ull>(figures.stampsGoingBack));
  }
  fprintf(aFile, "supervision messages: %llu\n", static_cast<ull>(aSummary.supervisionMessages));
  for (const auto& output : aSummary.outputs)
    fprintf(aFile, "%-22s%s\n", (output.first + " in:").c_str(), output.second.c_str());
  if (aSummary.soak != nullptr) PrintSoak(aFile, *aSummary.soak);
}

nlohmann::ordered_json SummaryJson(const Summary& aSummary) {
  const RunFigures& figures = aSummary.figures;
  nlohmann::ordered_json json;
  json["source"] = aSummary.source;
  json["drive"] = aSummary.drive;
  json["records_fed"] = figures.recordsFed;
  json["records_not_sent"] = figures.recordsNotSent;
  json["clients"] = nlohmann::ordered_json::array();
  for (const ClientSummary& client : figures.clients) {
    json["clients"].push_back({{"name", client.name},
                               {"type1", client.samples[0]},
                               {"type2", client.samples[1]},
                               {"other", client.samples[2]},
                               {"replayed", client.replayed}});
  }
  json["replayed"] = figures.replayed;
  json["synchronised"] = figures.synchronised;
  json["first_sync_offset"] = figures.firstSyncOffset;
  // [seconds since the feature started, offset in ms], the first changes only.
  json["offsets"] = nlohmann::ordered_json::array();
  for (const OffsetPoint& point : figures.offsets) json["offsets"].push_back({point.seconds, point.offset});
  json["offset_changes"] = figures.offsetChanges;
  json["error_mean"] = figures.errorMean;
  json["error_max_abs"] = figures.errorMaxAbs;
  json["error_count"] = figures.errorCount;
  json["clock_wraps"] = figures.clockWraps;
  json["stamps_going_back"] = figures.stampsGoingBack;
  json["supervision_messages"] = aSummary.supervisionMessages;
  if (!aSummary.noSource.empty()) json["no_source"] = aSummary.noSource;
  json["outputs"] = nlohmann::ordered_json::object();
  for (const auto& output : aSummary.outputs) json["outputs"][output.first] = output.second;
  json["simulated_seconds"] = aSummary.simulatedSeconds;
  json["wall_seconds"] = aSummary.wallSeconds;
  json["interrupted"] = aSummary.interruptedBy != 0;
  if (aSummary.interruptedBy != 0) json["signal"] = strsignal(aSummary.interruptedBy);
  if (aSummary.soak == nullptr) return json;
  const SoakSummary& soak = *aSummary.soak;
  json["soak"] = {{"passed", soak.Passed()},
                  {"rss_first_minute_kb", soak.rssFirstMinuteKb},
                  {"rss_max_kb", soak.rssMaxKb},
                  {"rss_growth_kb", soak.rssGrowthKb},
                  {"rss_tolerance_kb", soak.rssToleranceKb},
                  {"rss_samples", soak.rssKb.size()},
                  {"records_gate_open", soak.recordsWhileGateOpen},
                  {"deliveries_checked", soak.deliveriesChecked},
                  {"delivery_errors", soak.deliveryErrors},
                  {"replays_checked", soak.replaysChecked},
                  {"replay_errors", soak.replayErrors},
                  {"final_replay", soak.finalReplayDone},
                  {"final_replay_samples", soak.finalReplaySamples},
                  {"last_minute_fed", soak.lastMinuteFed},
                  {"first_mismatch", soak.firstDeliveryError}};
  json["rss_kb"] = soak.rssKb;
  return json;
}

}  // namespace sim
