/* Uses the object library from C, so the headers are compiled as C11 with
 * -pedantic; returns 0 when every check holds, else the failing check's
 * number. */
#include <CoreFoundation/CoreFoundation.h>

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
