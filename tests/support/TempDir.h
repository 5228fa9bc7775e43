// A private temporary folder for one test, removed with everything in it when the
// object goes (without a shell), and the small file helpers tests use in it.
#ifndef TESTS_SUPPORT_TEMP_DIR_H
#define TESTS_SUPPORT_TEMP_DIR_H

#include <string>
#include <vector>

namespace testing_support {

class CTempDir {
 public:
  CTempDir();
  ~CTempDir();
  CTempDir(const CTempDir&) = delete;
  CTempDir& operator=(const CTempDir&) = delete;
  // Empty when the folder could not be made.
  const std::string& Path() const { return iPath; }
  std::string File(const std::string& aName) const { return iPath + "/" + aName; }

 private:
  std::string iPath;
};

// Removes a file or a whole folder tree; false when something stayed.
bool RemoveTree(const std::string& aPath);
std::string ReadFile(const std::string& aPath);
void WriteFile(const std::string& aPath, const std::string& aText);
bool FileExists(const std::string& aPath);
std::vector<std::string> Lines(const std::string& aText);

}  // namespace testing_support

#endif  // TESTS_SUPPORT_TEMP_DIR_H
