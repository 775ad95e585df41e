/* The object library used from C, so that its headers compile as C11 under
   -pedantic; returns 0 when every check holds. */
#include <CoreFoundation/CoreFoundation.h>

int CFHeadersExerciseFromC(void);

int CFHeadersExerciseFromC(void)
{
    SInt32 seven = 7;
    double back = 0.0;
    CFNumberRef number = CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &seven);
    CFMutableDictionaryRef dict = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    int failed;
    CFDictionarySetValue(dict, CFSTR("seven"), number);
    failed = CFGetRetainCount(number) != 2 ||
             !CFNumberGetValue((CFNumberRef)CFDictionaryGetValue(dict, CFSTR("seven")),
                               kCFNumberDoubleType, &back) ||
             back != 7.0 || CFStringGetLength(CFSTR("seven")) != 5 || CFRangeMake(1, 2).length != 2;
    CFRelease(dict);
    CFRelease(number);
    return failed;
}
