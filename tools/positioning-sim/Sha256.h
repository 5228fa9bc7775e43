// SHA-256 of a byte stream, fed in pieces: the fingerprint of a run's samples and of a
// module file, so that two runs or two builds compare in one line.
#ifndef SIM_SHA256_H
#define SIM_SHA256_H

#include <stddef.h>
#include <stdint.h>

#include <string>

namespace sim {

class CSha256 {
 public:
  // aPortable: the plain C++ rounds even where the processor has SHA instructions
  // (used where they are, for a fingerprint of megabytes per drive).
  explicit CSha256(bool aPortable = false);
  // Whether this processor's SHA instructions are used by default.
  static bool Accelerated();
  // Adds aSize bytes to the message.
  void Update(const void* aData, size_t aSize);
  // The digest of everything added, as 64 lower-case hexadecimal digits. Ends the
  // message: a further Update starts nothing new.
  std::string HexDigest();

 private:
  void Blocks(const uint8_t* aBlocks, size_t aCount);

  uint32_t iState[8];
  uint8_t iPending[64];
  size_t iPendingSize = 0;
  uint64_t iLength = 0;  // bytes added
  bool iAccelerated;
};

// The SHA-256 of a file's bytes as hexadecimal digits; false with "PATH: reason".
bool Sha256OfFile(const std::string& aPath, std::string& aDigest, std::string& aError);

}  // namespace sim

#endif  // SIM_SHA256_H
