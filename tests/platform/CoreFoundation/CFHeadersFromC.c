/* Uses the object library from C, so the headers are compiled as C11 with
 * -pedantic; returns 0 when every check holds, else the failing check's
 * number. */
#include <CoreFoundation/CoreFoundation.h>

_Static_assert(kCFNumberSInt32Type == 3 && kCFNumberSInt64Type == 4 && kCFNumberFloat32Type == 5 &&
                   kCFNumberFloat64Type == 6 && kCFNumberIntType == 9 && kCFNumberFloatType == 12 &&
                   kCFNumberDoubleType == 13,
               "number type values");
_Static_assert(kCFStringEncodingUTF8 == 0x08000100 && kCFStringEncodingASCII == 0x0600,
               "encodings");
_Static_assert(kCFPropertyListImmutable == 0 && kCFPropertyListXMLFormat_v1_0 == 100 &&
                   kCFPropertyListBinaryFormat_v1_0 == 200,
               "property-list constants");
_Static_assert(kCFURLPOSIXPathStyle == 0 && kCFCompareEqualTo == 0 && kCFCompareLessThan == -1,
               "misc constants");

int CFHeadersExerciseFromC(void);

int CFHeadersExerciseFromC(void)
{
    int result = 0;
    SInt32 seven = 7;
    double back = 0.0;
    CFNumberRef number = CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &seven);
    CFStringRef key = CFSTR("seven");
    CFMutableDictionaryRef dict = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    CFRange range = CFRangeMake(1, 2);

    CFDictionarySetValue(dict, key, number);
    if (CFGetRetainCount(number) != 2) {
        result = 1;
    } else if (!CFNumberGetValue((CFNumberRef)CFDictionaryGetValue(dict, CFSTR("seven")),
                                 kCFNumberDoubleType, &back) ||
               back != 7.0) {
        result = 2;
    } else if (range.location != 1 || range.length != 2) {
        result = 3;
    } else if (CFStringGetLength(key) != 5 || CFSTR("seven") != key) {
        result = 4;
    }
    CFRelease(dict);
    CFRelease(number);
    return result;
}
