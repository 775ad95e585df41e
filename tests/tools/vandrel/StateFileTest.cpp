#include "StateFile.h"
#include "ToolError.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

namespace {

class StateFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/vandrel-state-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    mFolder = pattern;
  }
  void TearDown() override {
    for (const char* name : {"a.aupreset", "list.plist", "junk.aupreset"}) unlink((mFolder + "/" + name).c_str());
    rmdir(mFolder.c_str());
  }
  void writeText(const std::string& name, const std::string& text) {
    std::ofstream(mFolder + "/" + name) << text;
  }
  ExitStatus loadStatus(const std::string& path) {
    try {
      StateFile::load(path);
    } catch (const ToolError& error) {
      return error.status();
    }
    return ExitStatus::kSuccess;
  }

  std::string mFolder;
};

CFRef<CFDictionaryRef> sampleState() {
  CFMutableDictionaryRef state =
      CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
  const SInt32 subtype = 0x566E6472;
  CFRef<CFNumberRef> number(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &subtype));
  CFDictionarySetValue(state, CFSTR("subtype"), number.get());
  const UInt8 blob[] = {0, 0, 0, 0, 0xC2, 0xA0, 0, 0};
  CFRef<CFDataRef> data(CFDataCreate(kCFAllocatorDefault, blob, sizeof(blob)));
  CFDictionarySetValue(state, CFSTR("data"), data.get());
  CFDictionarySetValue(state, CFSTR("name"), CFSTR("Warble – mine"));
  return CFRef<CFDictionaryRef>(state);
}

TEST_F(StateFileTest, SavedStateLoadsBackEqualAsAnXmlPropertyList) {
  const std::string path = mFolder + "/a.aupreset";
  const CFRef<CFDictionaryRef> state = sampleState();
  StateFile::save(path, state.get());
  std::ifstream file(path);
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  EXPECT_EQ(text.rfind("<?xml", 0), 0u) << text;
  const CFRef<CFPropertyListRef> loaded = StateFile::load(path);
  EXPECT_TRUE(CFEqual(loaded.get(), state.get()));
}

TEST_F(StateFileTest, FilesThatHoldNoStateAreRefused) {
  EXPECT_EQ(loadStatus(mFolder + "/missing.aupreset"), ExitStatus::kInputUnreadable);
  writeText("junk.aupreset", "not a property list");
  EXPECT_EQ(loadStatus(mFolder + "/junk.aupreset"), ExitStatus::kInputUnreadable);
  writeText("list.plist",
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><array><integer>1</integer></array>"
            "</plist>\n");
  EXPECT_EQ(loadStatus(mFolder + "/list.plist"), ExitStatus::kInputUnreadable) << "an array is not a state";

  const CFRef<CFDictionaryRef> state = sampleState();
  try {
    StateFile::save(mFolder + "/missing/a.aupreset", state.get());
    ADD_FAILURE() << "saved into a missing folder";
  } catch (const ToolError& error) {
    EXPECT_EQ(error.status(), ExitStatus::kOutputUnwritable);
  }
}

}  // namespace
