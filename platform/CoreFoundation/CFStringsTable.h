// Reader of localized string tables (".strings" files): lines of
// "key" = "value"; with /* */ and // comments, in UTF-8 or UTF-16 (a byte
// order mark, or the zero bytes of ASCII text, tells which). Tables stored
// as XML or binary property lists are read too.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <vector>

class CFStringsTable
{
public:
    // Owned dictionary of string keys and values; NULL when the bytes are
    // not text. A syntax error ends the table: the entries before it stay.
    static CFDictionaryRef create(const std::vector<UInt8>& bytes);

private:
    explicit CFStringsTable(std::u16string text) : mText(std::move(text)) {}

    void skipSpaceAndComments();
    bool readString(std::u16string& out);
    bool readQuoted(std::u16string& out);
    void readEntries(CFMutableDictionaryRef table);

    const std::u16string mText;
    size_t mPos = 0;
};
