// Property lists are read and written through libplist: a tree of objects
// is converted to libplist nodes and serialised, or parsed and converted
// back. Integers (any integer number) become <integer>, reals (float or
// double numbers) become <real>; dictionary keys are written sorted so that
// equal trees give equal bytes.
#include "CFRuntimeBase.h"

#include <plist/plist.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace {

// Deeper trees (more than kMaxDepth + 1 levels) are refused rather than
// risking the stack.
constexpr int kMaxDepth = 512;

struct PlistFree
{
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistPtr = std::unique_ptr<void, PlistFree>;

struct CFReleaser
{
    void operator()(const void* object) const { CFRelease(object); }
};
using CFPtr = std::unique_ptr<const void, CFReleaser>;

bool isValidTree(CFTypeRef object, int depth)
{
    const CFTypeID type = CFGetTypeID(object);
    if (depth > kMaxDepth) {
        return false;
    }
    if (type == CFStringGetTypeID() || type == CFNumberGetTypeID() ||
        type == CFBooleanGetTypeID() || type == CFDataGetTypeID()) {
        return true;
    }
    if (type == CFArrayGetTypeID()) {
        const auto array = static_cast<CFArrayRef>(object);
        for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
            if (!isValidTree(CFArrayGetValueAtIndex(array, i), depth + 1)) {
                return false;
            }
        }
        return true;
    }
    if (type == CFDictionaryGetTypeID()) {
        const auto dict = static_cast<CFDictionaryRef>(object);
        const CFIndex count = CFDictionaryGetCount(dict);
        std::vector<const void*> keys(static_cast<size_t>(count));
        std::vector<const void*> values(static_cast<size_t>(count));
        CFDictionaryGetKeysAndValues(dict, keys.data(), values.data());
        for (CFIndex i = 0; i < count; ++i) {
            if (CFGetTypeID(keys[static_cast<size_t>(i)]) != CFStringGetTypeID() ||
                !isValidTree(values[static_cast<size_t>(i)], depth + 1)) {
                return false;
            }
        }
        return true;
    }
    return false;
}

// libplist node for a tree already checked by isValidTree.
plist_t toNode(CFTypeRef object)
{
    const CFTypeID type = CFGetTypeID(object);
    if (type == CFStringGetTypeID()) {
        return plist_new_string(CFRuntimeUTF8(static_cast<CFStringRef>(object)).c_str());
    }
    if (type == CFNumberGetTypeID()) {
        const auto number = static_cast<CFNumberRef>(object);
        if (CFNumberIsFloatType(number)) {
            double real = 0.0;
            CFNumberGetValue(number, kCFNumberFloat64Type, &real);
            return plist_new_real(real);
        }
        SInt64 integer = 0;
        CFNumberGetValue(number, kCFNumberSInt64Type, &integer);
        return plist_new_uint(static_cast<uint64_t>(integer));
    }
    if (type == CFBooleanGetTypeID()) {
        return plist_new_bool(CFBooleanGetValue(static_cast<CFBooleanRef>(object)) ? 1 : 0);
    }
    if (type == CFDataGetTypeID()) {
        const auto data = static_cast<CFDataRef>(object);
        return plist_new_data(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                              static_cast<uint64_t>(CFDataGetLength(data)));
    }
    if (type == CFArrayGetTypeID()) {
        const auto array = static_cast<CFArrayRef>(object);
        plist_t node = plist_new_array();
        for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
            plist_array_append_item(node, toNode(CFArrayGetValueAtIndex(array, i)));
        }
        return node;
    }
    const auto dict = static_cast<CFDictionaryRef>(object);
    const CFIndex count = CFDictionaryGetCount(dict);
    std::vector<const void*> keys(static_cast<size_t>(count));
    std::vector<const void*> values(static_cast<size_t>(count));
    CFDictionaryGetKeysAndValues(dict, keys.data(), values.data());
    std::vector<std::pair<std::string, const void*>> entries;
    for (CFIndex i = 0; i < count; ++i) {
        entries.emplace_back(CFRuntimeUTF8(static_cast<CFStringRef>(keys[static_cast<size_t>(i)])),
                             values[static_cast<size_t>(i)]);
    }
    std::sort(entries.begin(), entries.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    plist_t node = plist_new_dict();
    for (const auto& entry : entries) {
        plist_dict_set_item(node, entry.first.c_str(), toNode(entry.second));
    }
    return node;
}

// Owned object for a libplist node; NULL for types this library lacks.
CFTypeRef fromNode(plist_t node, CFOptionFlags options, int depth)
{
    if (depth > kMaxDepth) {
        return nullptr;
    }
    const bool mutableContainers = options != kCFPropertyListImmutable;
    const bool mutableLeaves = options == kCFPropertyListMutableContainersAndLeaves;
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return value != 0 ? kCFBooleanTrue : kCFBooleanFalse;
    }
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        const auto integer = static_cast<SInt64>(value);
        return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &integer);
    }
    case PLIST_REAL: {
        double value = 0.0;
        plist_get_real_val(node, &value);
        return CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &value);
    }
    case PLIST_STRING: {
        uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        CFPtr string(
            CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text),
                                    static_cast<CFIndex>(length), kCFStringEncodingUTF8, false));
        if (string && mutableLeaves) {
            return CFStringCreateMutableCopy(kCFAllocatorDefault, 0,
                                             static_cast<CFStringRef>(string.get()));
        }
        return string.release();
    }
    case PLIST_DATA: {
        uint64_t length = 0;
        const char* bytes = plist_get_data_ptr(node, &length);
        CFPtr data(CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes),
                                static_cast<CFIndex>(length)));
        if (data && mutableLeaves) {
            return CFDataCreateMutableCopy(kCFAllocatorDefault, 0,
                                           static_cast<CFDataRef>(data.get()));
        }
        return data.release();
    }
    case PLIST_ARRAY: {
        CFMutableArrayRef array =
            CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
        CFPtr owner(array);
        const uint32_t count = plist_array_get_size(node);
        for (uint32_t i = 0; i < count; ++i) {
            CFPtr item(fromNode(plist_array_get_item(node, i), options, depth + 1));
            if (!item) {
                return nullptr;
            }
            CFArrayAppendValue(array, item.get());
        }
        return mutableContainers ? owner.release() : CFArrayCreateCopy(kCFAllocatorDefault, array);
    }
    case PLIST_DICT: {
        CFMutableDictionaryRef dict =
            CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                      &kCFTypeDictionaryValueCallBacks);
        CFPtr owner(dict);
        plist_dict_iter iter = nullptr;
        plist_dict_new_iter(node, &iter);
        bool complete = iter != nullptr;
        while (complete) {
            char* keyText = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(node, iter, &keyText, &value);
            if (value == nullptr) {
                std::free(keyText);
                break;
            }
            CFPtr key(CFRuntimeCreateString(keyText != nullptr ? keyText : ""));
            std::free(keyText);
            CFPtr item(fromNode(value, options, depth + 1));
            if (!key || !item) {
                complete = false;
                break;
            }
            CFDictionarySetValue(dict, key.get(), item.get());
        }
        std::free(iter);
        if (!complete) {
            return nullptr;
        }
        return mutableContainers ? owner.release()
                                 : CFDictionaryCreateCopy(kCFAllocatorDefault, dict);
    }
    default:
        return nullptr;
    }
}

// Big-endian unsigned integer of `size` bytes (1 to 8) at `at`.
uint64_t readBigEndian(const unsigned char* at, unsigned size)
{
    uint64_t value = 0;
    for (unsigned i = 0; i < size; ++i) {
        value = (value << 8) | at[i];
    }
    return value;
}

// True when a binary property list holds a string object with a NUL
// character. libplist keeps such a string's length, but reading one as a
// dictionary key asserts that the text has no NUL and aborts the process, so
// these lists are refused before parsing. Every object inside the data is
// checked, even one placed in the header or the offset table, since the
// parser reads objects wherever the table points. A malformed list is left
// for the parser to refuse.
bool binaryHasNulString(const unsigned char* bytes, uint32_t size)
{
    constexpr uint32_t kHeader = 8;
    constexpr uint32_t kTrailer = 32;
    if (size < kHeader + kTrailer) {
        return false;
    }
    const unsigned char* trailer = bytes + size - kTrailer;
    const unsigned offsetSize = trailer[6];
    const uint64_t objects = readBigEndian(trailer + 8, 8);
    const uint64_t table = readBigEndian(trailer + 24, 8);
    const uint64_t tableEnd = size - kTrailer;
    if (offsetSize < 1 || offsetSize > 8 || table > tableEnd ||
        objects > (tableEnd - table) / offsetSize) {
        return false;
    }
    // NUL characters counted up to each position (ASCII: zero bytes; UTF-16:
    // zero byte pairs, apart by the parity of where they start), so that each
    // string is checked in constant time however many objects share bytes.
    std::vector<uint32_t> zeros(size + 1, 0);
    std::vector<uint32_t> pairs[2] = {std::vector<uint32_t>(size + 1, 0),
                                      std::vector<uint32_t>(size + 1, 0)};
    for (uint32_t i = 0; i < size; ++i) {
        const bool pair = bytes[i] == 0 && i + 1 < size && bytes[i + 1] == 0;
        zeros[i + 1] = zeros[i] + (bytes[i] == 0 ? 1 : 0);
        for (unsigned parity = 0; parity < 2; ++parity) {
            pairs[parity][i + 1] = pairs[parity][i] + (pair && i % 2 == parity ? 1 : 0);
        }
    }
    for (uint64_t i = 0; i < objects; ++i) {
        const uint64_t offset = readBigEndian(bytes + table + i * offsetSize, offsetSize);
        if (offset >= size) {
            continue;
        }
        const unsigned kind = bytes[offset] >> 4;
        if (kind != 0x5 && kind != 0x6) { // ASCII or UTF-16 string
            continue;
        }
        uint64_t length = bytes[offset] & 0xF;
        uint64_t start = offset + 1;
        if (length == 0xF) { // the length follows as an integer object
            if (start >= size || (bytes[start] >> 4) != 0x1 || (bytes[start] & 0xF) > 3) {
                continue;
            }
            const unsigned lengthSize = 1u << (bytes[start] & 0xF);
            if (start + 1 + lengthSize > size) {
                continue;
            }
            length = readBigEndian(bytes + start + 1, lengthSize);
            start += 1 + lengthSize;
        }
        const uint64_t unit = kind == 0x5 ? 1 : 2;
        if (length > (size - start) / unit) {
            continue;
        }
        const uint64_t end = start + length * unit;
        const bool nul = unit == 1 ? zeros[end] != zeros[start]
                                   : pairs[start % 2][end] != pairs[start % 2][start];
        if (nul) {
            return true;
        }
    }
    return false;
}

// libplist parses containers recursively and expands every shared object
// of a binary list once per reference, so a list is checked before parsing:
// nesting deeper than kMaxDepth would exhaust the stack, and a binary list
// whose expanded tree has more nodes than the list has bytes (objects shared
// along a chain) would exhaust memory. Both checks take time linear in the
// input.

// True when XML container tags nest deeper than kMaxDepth. Tags inside
// comments or text are counted too, which only errs towards refusing.
bool xmlTooDeep(const char* bytes, uint32_t size)
{
    const std::string_view text(bytes, size);
    int depth = 0;
    for (size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at + 1)) {
        const std::string_view tag = text.substr(at + 1);
        const bool closing = !tag.empty() && tag[0] == '/';
        const std::string_view name = tag.substr(closing ? 1 : 0);
        const size_t length = name.compare(0, 5, "array") == 0  ? 5
                              : name.compare(0, 4, "dict") == 0 ? 4
                                                                : 0;
        if (length == 0 ||
            (name.size() > length && std::isalnum(static_cast<unsigned char>(name[length])) != 0)) {
            continue;
        }
        const size_t end = text.find('>', at);
        const bool empty = end != std::string_view::npos && end > at && text[end - 1] == '/';
        if (closing) {
            depth = std::max(depth - 1, 0);
        } else if (!empty && ++depth > kMaxDepth + 1) {
            return true;
        }
    }
    return false;
}

// True when the containers reachable from a binary list's top object nest
// deeper than kMaxDepth, form a cycle, or expand to more nodes than the list
// has bytes. A malformed list is left for the parser to refuse.
bool binaryTooLarge(const unsigned char* bytes, uint32_t size)
{
    constexpr uint32_t kTrailer = 32;
    if (size < 8 + kTrailer) {
        return false;
    }
    const unsigned char* trailer = bytes + size - kTrailer;
    const unsigned offsetSize = trailer[6];
    const unsigned refSize = trailer[7];
    const uint64_t objects = readBigEndian(trailer + 8, 8);
    const uint64_t top = readBigEndian(trailer + 16, 8);
    const uint64_t table = readBigEndian(trailer + 24, 8);
    const uint64_t tableEnd = size - kTrailer;
    if (offsetSize < 1 || offsetSize > 8 || refSize < 1 || refSize > 8 || table > tableEnd ||
        objects > (tableEnd - table) / offsetSize || top >= objects) {
        return false;
    }
    // The references of container object `index` (array, set or dictionary):
    // where they start and how many; none for other objects.
    const auto references = [&](uint64_t index, uint64_t& start, uint64_t& count) {
        count = 0;
        const uint64_t offset = readBigEndian(bytes + table + index * offsetSize, offsetSize);
        if (offset >= size) {
            return;
        }
        const unsigned kind = bytes[offset] >> 4;
        if (kind != 0xA && kind != 0xC && kind != 0xD) {
            return;
        }
        uint64_t n = bytes[offset] & 0xF;
        start = offset + 1;
        if (n == 0xF) {
            if (start >= size || (bytes[start] >> 4) != 0x1 || (bytes[start] & 0xF) > 3) {
                return;
            }
            const unsigned nSize = 1u << (bytes[start] & 0xF);
            if (start + 1 + nSize > size) {
                return;
            }
            n = readBigEndian(bytes + start + 1, nSize);
            start += 1 + nSize;
        }
        const uint64_t perEntry = kind == 0xD ? 2 : 1;
        if (n <= (size - start) / refSize / perEntry) {
            count = n * perEntry;
        }
    };
    // Depth-first, each object's expanded size computed once; 0 while the
    // object is being expanded (a cycle if met again).
    std::vector<uint64_t> expanded(objects, UINT64_MAX);
    struct Frame
    {
        uint64_t index, start, count, next, total;
    };
    std::vector<Frame> path;
    const auto enter = [&](uint64_t index) {
        Frame frame{index, 0, 0, 0, 1};
        references(index, frame.start, frame.count);
        expanded[index] = 0;
        path.push_back(frame);
        return path.size() <= static_cast<size_t>(kMaxDepth) + 1;
    };
    if (!enter(top)) {
        return true;
    }
    while (!path.empty()) {
        Frame& frame = path.back();
        if (frame.next == frame.count) {
            expanded[frame.index] = frame.total;
            const uint64_t total = frame.total;
            path.pop_back();
            if (!path.empty()) {
                path.back().total += total;
                if (path.back().total > size) {
                    return true;
                }
            }
            continue;
        }
        const uint64_t child = readBigEndian(bytes + frame.start + frame.next * refSize, refSize);
        ++frame.next;
        if (child >= objects) {
            continue; // the parser refuses it
        }
        if (expanded[child] == 0) {
            return true; // a cycle
        }
        if (expanded[child] != UINT64_MAX) {
            frame.total += expanded[child];
            if (frame.total > size) {
                return true;
            }
        } else if (!enter(child)) {
            return true;
        }
    }
    return false;
}

void reportError(CFErrorRef* error, CFIndex code, const char* description)
{
    if (error != nullptr) {
        *error = CFRuntimeCreateError(code, description);
    }
}

CFTypeRef deepCopy(CFTypeRef object, CFOptionFlags options)
{
    const CFTypeID type = CFGetTypeID(object);
    const bool mutableContainers = options != kCFPropertyListImmutable;
    const bool mutableLeaves = options == kCFPropertyListMutableContainersAndLeaves;
    if (type == CFStringGetTypeID()) {
        return mutableLeaves
                   ? CFStringCreateMutableCopy(kCFAllocatorDefault, 0,
                                               static_cast<CFStringRef>(object))
                   : CFStringCreateCopy(kCFAllocatorDefault, static_cast<CFStringRef>(object));
    }
    if (type == CFDataGetTypeID()) {
        return mutableLeaves
                   ? CFDataCreateMutableCopy(kCFAllocatorDefault, 0, static_cast<CFDataRef>(object))
                   : CFDataCreateCopy(kCFAllocatorDefault, static_cast<CFDataRef>(object));
    }
    if (type == CFNumberGetTypeID() || type == CFBooleanGetTypeID()) {
        return CFRetain(object);
    }
    if (type == CFArrayGetTypeID()) {
        const auto source = static_cast<CFArrayRef>(object);
        CFMutableArrayRef array =
            CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
        CFPtr owner(array);
        for (CFIndex i = 0; i < CFArrayGetCount(source); ++i) {
            CFPtr item(deepCopy(CFArrayGetValueAtIndex(source, i), options));
            CFArrayAppendValue(array, item.get());
        }
        return mutableContainers ? owner.release() : CFArrayCreateCopy(kCFAllocatorDefault, array);
    }
    const auto source = static_cast<CFDictionaryRef>(object);
    const CFIndex count = CFDictionaryGetCount(source);
    std::vector<const void*> keys(static_cast<size_t>(count));
    std::vector<const void*> values(static_cast<size_t>(count));
    CFDictionaryGetKeysAndValues(source, keys.data(), values.data());
    CFMutableDictionaryRef dict = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    CFPtr owner(dict);
    for (size_t i = 0; i < keys.size(); ++i) {
        CFPtr key(CFStringCreateCopy(kCFAllocatorDefault, static_cast<CFStringRef>(keys[i])));
        CFPtr item(deepCopy(values[i], options));
        CFDictionarySetValue(dict, key.get(), item.get());
    }
    return mutableContainers ? owner.release() : CFDictionaryCreateCopy(kCFAllocatorDefault, dict);
}

} // namespace

CFDataRef CFPropertyListCreateData(CFAllocatorRef, CFPropertyListRef propertyList,
                                   CFPropertyListFormat format, CFOptionFlags, CFErrorRef* error)
{
    if (format != kCFPropertyListXMLFormat_v1_0 && format != kCFPropertyListBinaryFormat_v1_0) {
        reportError(error, kCFPropertyListWriteInvalidError,
                    "Property lists are written only as XML or binary.");
        return nullptr;
    }
    if (propertyList == nullptr || !isValidTree(propertyList, 0)) {
        reportError(error, kCFPropertyListWriteInvalidError,
                    "The object is not a valid property list.");
        return nullptr;
    }
    PlistPtr root(toNode(propertyList));
    char* bytes = nullptr;
    uint32_t length = 0;
    if (format == kCFPropertyListXMLFormat_v1_0) {
        plist_to_xml(static_cast<plist_t>(root.get()), &bytes, &length);
    } else {
        plist_to_bin(static_cast<plist_t>(root.get()), &bytes, &length);
    }
    if (bytes == nullptr) {
        reportError(error, kCFPropertyListWriteInvalidError,
                    "The property list could not be serialised.");
        return nullptr;
    }
    CFDataRef data = CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes),
                                  static_cast<CFIndex>(length));
    if (format == kCFPropertyListXMLFormat_v1_0) {
        plist_to_xml_free(bytes);
    } else {
        plist_to_bin_free(bytes);
    }
    return data;
}

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef, CFDataRef data,
                                               CFOptionFlags options, CFPropertyListFormat* format,
                                               CFErrorRef* error)
{
    const CFIndex length = CFDataGetLength(data);
    if (CFGetTypeID(data) != CFDataGetTypeID() || length <= 0 ||
        static_cast<UInt64>(length) > std::numeric_limits<uint32_t>::max() ||
        options > kCFPropertyListMutableContainersAndLeaves) {
        reportError(error, kCFPropertyListReadCorruptError, "The data is not a property list.");
        return nullptr;
    }
    const auto* bytes = reinterpret_cast<const char*>(CFDataGetBytePtr(data));
    const auto size = static_cast<uint32_t>(length);
    const bool binary = plist_is_binary(bytes, size) != 0;
    if (binary && binaryHasNulString(reinterpret_cast<const unsigned char*>(bytes), size)) {
        reportError(error, kCFPropertyListReadCorruptError,
                    "The property list holds a string with a NUL character.");
        return nullptr;
    }
    if (binary ? binaryTooLarge(reinterpret_cast<const unsigned char*>(bytes), size)
               : xmlTooDeep(bytes, size)) {
        reportError(error, kCFPropertyListReadCorruptError,
                    "The property list nests too deeply or expands too far.");
        return nullptr;
    }
    plist_t parsed = nullptr;
    plist_from_memory(bytes, size, &parsed);
    PlistPtr root(parsed);
    if (!root) {
        reportError(error, kCFPropertyListReadCorruptError, "The data is not a property list.");
        return nullptr;
    }
    CFPropertyListRef result = fromNode(parsed, options, 0);
    if (result == nullptr) {
        reportError(error, kCFPropertyListReadCorruptError,
                    "The property list holds an unsupported type.");
        return nullptr;
    }
    if (format != nullptr) {
        *format = binary ? kCFPropertyListBinaryFormat_v1_0 : kCFPropertyListXMLFormat_v1_0;
    }
    return result;
}

CFPropertyListRef CFPropertyListCreateDeepCopy(CFAllocatorRef, CFPropertyListRef propertyList,
                                               CFOptionFlags mutabilityOption)
{
    if (propertyList == nullptr || !isValidTree(propertyList, 0) ||
        mutabilityOption > kCFPropertyListMutableContainersAndLeaves) {
        return nullptr;
    }
    return deepCopy(propertyList, mutabilityOption);
}

Boolean CFPropertyListIsValid(CFPropertyListRef plist, CFPropertyListFormat format)
{
    return plist != nullptr &&
           (format == kCFPropertyListXMLFormat_v1_0 ||
            format == kCFPropertyListBinaryFormat_v1_0) &&
           isValidTree(plist, 0);
}

CFDictionaryRef CFRuntimeCreateDictionaryFromPropertyList(const std::vector<UInt8>& bytes)
{
    CFDataRef data =
        CFDataCreate(kCFAllocatorDefault, bytes.data(), static_cast<CFIndex>(bytes.size()));
    CFPropertyListRef plist = CFPropertyListCreateWithData(
        kCFAllocatorDefault, data, kCFPropertyListImmutable, nullptr, nullptr);
    CFRelease(data);
    if (CFGetTypeID(plist) == CFDictionaryGetTypeID()) {
        return static_cast<CFDictionaryRef>(plist);
    }
    CFRelease(plist);
    return nullptr;
}
