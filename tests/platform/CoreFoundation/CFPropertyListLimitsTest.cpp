// Malformed property lists, and lists at sizes a fuzz input never reaches:
// each is refused with an error, without exhausting the stack or memory.
#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace {

std::string Repeat(const std::string& text, size_t times)
{
    std::string result;
    result.reserve(text.size() * times);
    for (size_t i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

std::string Xml(const std::string& body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + body +
           "</plist>";
}

void Append(std::string& out, uint64_t value, unsigned bytes)
{
    for (unsigned i = bytes; i-- > 0;) {
        out += static_cast<char>((value >> (8 * i)) & 0xFF);
    }
}

// A binary list of the given objects (each one encoded object, references
// of `refSize` bytes already in it), the first the top, with its offset table
// and trailer; `claimed` replaces the object count when nonzero.
std::string Binary(const std::vector<std::string>& objects, unsigned refSize, uint64_t claimed = 0)
{
    std::string out = "bplist00";
    std::vector<uint64_t> offsets;
    for (const std::string& object : objects) {
        offsets.push_back(out.size());
        out += object;
    }
    const uint64_t table = out.size();
    for (uint64_t offset : offsets) {
        Append(out, offset, 8);
    }
    out += std::string(6, '\0');
    out += static_cast<char>(8);
    out += static_cast<char>(refSize);
    Append(out, claimed != 0 ? claimed : objects.size(), 8);
    Append(out, 0, 8);
    Append(out, table, 8);
    return out;
}

// 100,000 arrays, each holding the next; the last one empty.
std::string DeepBinary()
{
    constexpr uint32_t kDepth = 100000;
    std::vector<std::string> objects;
    for (uint32_t i = 0; i < kDepth; ++i) {
        std::string array;
        if (i + 1 < kDepth) {
            array += static_cast<char>(0xA1);
            Append(array, i + 1, 4);
        } else {
            array += static_cast<char>(0xA0);
        }
        objects.push_back(array);
    }
    return Binary(objects, 4);
}

// An array that claims 2^32 - 1 elements, all the one string that follows.
std::string HugeCountBinary()
{
    std::string array(1, static_cast<char>(0xAF));
    array += static_cast<char>(0x12);
    Append(array, 0xFFFFFFFF, 4);
    array += std::string(64, '\1');
    return Binary({array, "\x51x"}, 1);
}

// 64 arrays, each holding the next one twice: 2^64 arrays once expanded.
std::string SharedChainBinary()
{
    std::vector<std::string> objects;
    for (int i = 0; i < 63; ++i) {
        objects.push_back(std::string{static_cast<char>(0xA2), static_cast<char>(i + 1),
                                      static_cast<char>(i + 1)});
    }
    objects.push_back(std::string(1, static_cast<char>(0xA0)));
    return Binary(objects, 1);
}

std::string BillionLaughs()
{
    std::string doctype = "<!DOCTYPE plist [\n<!ENTITY a0 \"ha\">\n";
    for (int i = 1; i <= 10; ++i) {
        doctype += "<!ENTITY a" + std::to_string(i) + " \"" +
                   Repeat("&a" + std::to_string(i - 1) + ";", 10) + "\">\n";
    }
    return "<?xml version=\"1.0\"?>\n" + doctype + "]>\n<plist><string>&a10;</string></plist>";
}

} // namespace

TEST(CFPropertyListLimitsTest, HostileListsAreRefused)
{
    const std::string nested = Repeat("<array>", 513) + Repeat("</array>", 513);
    const std::pair<const char*, std::string> cases[] = {
        {"nested 514 deep", Xml("<array>" + nested + "</array>")},
        {"empty", ""},
        {"text", "this is not a property list"},
        {"dictionary never closed", Xml("<dict><key>a</key><integer>1</integer>")},
        {"a date", Xml("<date>2020-01-01T00:00:00Z</date>")},
        {"binary cut short", "bplist00\xD1\x01\x02 cut short"},
        {"XML arrays nested 100,000 deep",
         Xml(Repeat("<array>", 100000) + Repeat("</array>", 100000))},
        {"XML dictionaries nested 100,000 deep",
         Xml(Repeat("<dict><key>k</key>", 100000) + "<true/>" + Repeat("</dict>", 100000))},
        {"binary arrays nested 100,000 deep", DeepBinary()},
        {"binary array claiming 2^32 - 1 elements", HugeCountBinary()},
        {"binary arrays shared along a chain of 64", SharedChainBinary()},
        {"binary trailer claiming 2^63 objects", Binary({"\x08"}, 1, uint64_t{1} << 63)},
        {"XML entity expansion", BillionLaughs()},
        {"8 MB of XML never closed", Xml("<array>" + Repeat("<string>abc</string>", 400000))},
        {"8 MB of a string never closed", Xml("<string>" + std::string(8 << 20, 'x'))},
    };
    for (const auto& [name, bytes] : cases) {
        SCOPED_TRACE(name);
        CFDataRef data =
            CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
                         static_cast<CFIndex>(bytes.size()));
        CFErrorRef error = nullptr;
        CFPropertyListFormat format = 99;
        CFPropertyListRef list = CFPropertyListCreateWithData(
            kCFAllocatorDefault, data, kCFPropertyListImmutable, &format, &error);
        CFRelease(data);
        EXPECT_EQ(nullptr, list);
        ASSERT_NE(nullptr, error);
        EXPECT_EQ(kCFPropertyListReadCorruptError, CFErrorGetCode(error));
        EXPECT_EQ(99, format);
        CFRelease(error);
    }
    // 513 levels are the most a list may nest.
    CFDataRef data =
        CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(Xml(nested).data()),
                     static_cast<CFIndex>(Xml(nested).size()));
    CFPropertyListRef list = CFPropertyListCreateWithData(
        kCFAllocatorDefault, data, kCFPropertyListMutableContainersAndLeaves, nullptr, nullptr);
    EXPECT_NE(nullptr, list);
    CFRelease(list);
    CFRelease(data);
}
