// The SHA-256 that fingerprints sample files and modules: the standard's test vectors,
// pieces of any size, and files.
#include <gtest/gtest.h>

#include <string>

#include "Sha256.h"
#include "TempDir.h"

namespace {

using sim::CSha256;

std::string Digest(const std::string& aText, bool aPortable = false) {
  CSha256 hash(aPortable);
  hash.Update(aText.data(), aText.size());
  return hash.HexDigest();
}

TEST(Sha256Test, TheEmptyMessageHasTheStandardDigest) {
  EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", Digest(""));
}

TEST(Sha256Test, OneBlockMessagesHaveTheStandardDigests) {
  EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad", Digest("abc"));
  EXPECT_EQ("248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1",
            Digest("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"));
}

TEST(Sha256Test, AMillionLettersHaveTheStandardDigest) {
  EXPECT_EQ("cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0", Digest(std::string(1000000, 'a')));
}

TEST(Sha256Test, AMessageFedInPiecesOfAnySizeHasTheDigestOfTheWhole) {
  std::string message;
  for (int i = 0; i < 1000; ++i) message += static_cast<char>(i * 7 + 3);
  const std::string whole = Digest(message);
  for (size_t piece : {1u, 3u, 55u, 56u, 63u, 64u, 65u, 127u, 999u}) {
    CSha256 hash;
    for (size_t at = 0; at < message.size(); at += piece)
      hash.Update(message.data() + at, std::min(piece, message.size() - at));
    EXPECT_EQ(whole, hash.HexDigest()) << "pieces of " << piece;
  }
}

TEST(Sha256Test, ThePortableRoundsGiveTheDigestsOfTheProcessorsInstructions) {
  // Where the processor has none, both are the portable rounds: the vectors above hold them.
  std::string message;
  for (int i = 0; i < 100000; ++i) message += static_cast<char>(i * 13 + i / 7);
  for (size_t length : {0u, 1u, 55u, 56u, 64u, 100u, 1000u, 100000u}) {
    EXPECT_EQ(Digest(message.substr(0, length), true), Digest(message.substr(0, length))) << length << " bytes";
  }
  EXPECT_EQ("cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0",
            Digest(std::string(1000000, 'a'), true));
}

TEST(Sha256Test, AFileHasTheDigestOfItsBytesAndAMissingOneSaysWhy) {
  testing_support::CTempDir scratch;
  testing_support::WriteFile(scratch.File("abc"), "abc");
  std::string digest, error;
  ASSERT_TRUE(sim::Sha256OfFile(scratch.File("abc"), digest, error)) << error;
  EXPECT_EQ(Digest("abc"), digest);
  EXPECT_FALSE(sim::Sha256OfFile(scratch.File("missing"), digest, error));
  EXPECT_NE(std::string::npos, error.find("missing: No such file")) << error;
}

}  // namespace
