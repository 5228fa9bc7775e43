#include "BatchCommand.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>

#include "ExitCodes.h"
#include "Globals.h"
#include "Interruption.h"
#include "SimOptions.h"

namespace sim {

namespace {

const char* const kBatchFooter =
    "LIST holds one drive a line: the options of `positioning-sim run`, with --result-dir (blank lines and\n"
    "lines starting with # are skipped; '...' or \"...\" keep blanks in a word). For example:\n"
    "  --duration 600 --seed 1 --result-dir out/seed-1\n"
    "  --trace drives/a.csv --truth drives/a.truth.csv --result-dir out/a\n"
    "Each drive's folder holds what `positioning-sim run` with that line writes, byte for byte (run.json\n"
    "apart). A drive that fails is named on standard error with its status; the others go on.\n"
    "\n"
    "Exit status: 0 when every drive went through, else the first failing drive's status\n"
    "(2 for a line that is not a drive); 130 or 143 when interrupted, which ends the batch.\n";

}  // namespace

CLI::App* AddBatchCommand(CLI::App& aApp, BatchOptions& aOptions) {
  CLI::App* batch = aApp.add_subcommand("batch", "run many drives in one process, each into its own result folder");
  batch->footer(kBatchFooter);
  batch->add_option("LIST", aOptions.listPath, "the drives, one `run` command line a line (- for standard input)")
      ->required()
      ->type_name("FILE");
  batch->add_flag("--summaries", aOptions.summaries, "print each drive's summary on standard error");
  return batch;
}

bool SplitWords(const std::string& aLine, std::vector<std::string>& aWords, std::string& aError) {
  aWords.clear();
  std::string word;
  bool inWord = false;
  char quote = 0;
  for (char c : aLine) {
    if (quote != 0) {
      if (c == quote) {
        quote = 0;
      } else {
        word += c;
      }
    } else if (c == '\'' || c == '"') {
      quote = c;
      inWord = true;
    } else if (c == ' ' || c == '\t' || c == '\r') {
      if (inWord) aWords.push_back(word);
      word.clear();
      inWord = false;
    } else {
      word += c;
      inWord = true;
    }
  }
  if (quote != 0) return aError = std::string("no closing ") + quote, false;
  if (inWord) aWords.push_back(word);
  return true;
}

int RunBatch(const BatchOptions& aOptions, const std::string& aDefaultModule,
             const std::function<int(SimOptions&)>& aRunDrive) {
  std::ifstream file;
  if (aOptions.listPath != "-") {
    file.open(aOptions.listPath);
    if (!file) {
      fprintf(stderr, "positioning-sim batch: %s: %s\n", aOptions.listPath.c_str(), strerror(errno));
      return kExitBadInput;
    }
  }
  std::istream& list = aOptions.listPath == "-" ? std::cin : file;
  const bool terminal = isatty(STDERR_FILENO) != 0;
  int status = kExitOk;
  uint64_t drives = 0, failed = 0, number = 0;
  std::string line, error;
  std::vector<std::string> words;
  while (std::getline(list, line)) {
    ++number;
    const std::string where = aOptions.listPath + ":" + std::to_string(number);
    if (!SplitWords(line, words, error)) {
      fprintf(stderr, "positioning-sim batch: %s: %s\n", where.c_str(), error.c_str());
    } else if (words.empty() || words[0][0] == '#') {
      continue;
    }
    int result = kExitUsage;
    if (error.empty()) {
      // The line as the command line of `run`.
      words.insert(words.begin(), {"positioning-sim", "run"});
      std::vector<char*> arguments;
      arguments.reserve(words.size());
      for (std::string& word : words) arguments.push_back(&word[0]);
      SimOptions options;
      const int parsed =
          ParseCommandLine(static_cast<int>(arguments.size()), arguments.data(), aDefaultModule, options);
      if (parsed >= 0) {
        result = parsed == kExitOk ? kExitUsage : parsed;
      } else if (options.output.resultDir.empty()) {
        fprintf(stderr, "positioning-sim batch: %s: a drive needs --result-dir\n", where.c_str());
      } else {
        options.output.quiet = options.output.quiet || !aOptions.summaries;
        result = aRunDrive(options);
        host::ResetGlobals();
      }
    }
    error.clear();
    ++drives;
    if (result != kExitOk) {
      ++failed;
      fprintf(stderr, "positioning-sim batch: %s: status %d\n", where.c_str(), result);
      if (status == kExitOk) status = result;
    }
    if (terminal)
      fprintf(stderr, "\rbatch: %llu drives, %llu failed ", static_cast<unsigned long long>(drives),
              static_cast<unsigned long long>(failed));
    if (InterruptingSignal() != 0) {
      status = result;
      break;
    }
  }
  if (terminal) fprintf(stderr, "\n");
  if (list.bad()) {
    fprintf(stderr, "positioning-sim batch: %s: reading failed\n", aOptions.listPath.c_str());
    if (status == kExitOk) status = kExitBadInput;
  }
  fprintf(stderr, "positioning-sim batch: %llu drives, %llu failed\n", static_cast<unsigned long long>(drives),
          static_cast<unsigned long long>(failed));
  return status;
}

}  // namespace sim
