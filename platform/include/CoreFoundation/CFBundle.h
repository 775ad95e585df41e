/*
 * Bundles: a folder Name.ext/Contents/ holding Info.plist, the executable in
 * Contents/Linux/<CFBundleExecutable> and resources in Contents/Resources/,
 * localized ones in Resources/<language>.lproj/.
 *
 * Bundle objects are unique per folder: creating a bundle for a folder that
 * already has one returns that object, retained. A plug-in finds its own
 * bundle with CFBundleGetBundleWithIdentifier however the host loaded it:
 * the lookup also examines the shared objects loaded in the process and
 * treats any file at <Bundle>/Contents/<dir>/<file> as living in <Bundle>.
 * Bundles found that way live until the process ends.
 *
 * Localized look-ups follow the process's locale settings (LC_ALL, then
 * LC_MESSAGES, then LANG), read at each call: "fr_FR.UTF-8" tries
 * fr_FR.lproj, fr.lproj, French.lproj, then the English folders en.lproj
 * and English.lproj; "C", "POSIX" or nothing means English.
 */
#ifndef CFBUNDLE_H
#define CFBUNDLE_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFURL.h>

CF_EXTERN_C_BEGIN

typedef struct __CFBundle* CFBundleRef;

CF_EXPORT CFTypeID CFBundleGetTypeID(void);

/* Owned bundle for the folder at bundleURL; NULL when it is not a folder. A
 * missing Info.plist gives an empty info dictionary. [control] */
CF_EXPORT CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef bundleURL);

/* Borrowed bundle whose CFBundleIdentifier equals bundleID, among the bundles
 * created and the bundles of loaded shared objects; NULL when none. [control] */
CF_EXPORT CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef bundleID);

/* Borrowed identifier from Info.plist, NULL when absent. [any] */
CF_EXPORT CFStringRef CFBundleGetIdentifier(CFBundleRef bundle);
/* Borrowed Info.plist dictionary (empty when there is none). [any] */
CF_EXPORT CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle);
/* Borrowed Info.plist value for key, NULL when absent. [any] */
CF_EXPORT CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key);

/* Owned URL of the bundle folder. [any] */
CF_EXPORT CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle);
/* Owned URL of Contents/Resources. [any] */
CF_EXPORT CFURLRef CFBundleCopyResourcesDirectoryURL(CFBundleRef bundle);
/* Owned URL of the executable named by CFBundleExecutable in Contents/Linux;
 * NULL when Info.plist names none. [any] */
CF_EXPORT CFURLRef CFBundleCopyExecutableURL(CFBundleRef bundle);

/* Owned URL of resource "<name>.<resourceType>" (resourceType may be NULL or
 * start with a dot) in Resources/<subDirName>, searched first unlocalized,
 * then in the current language's folders, then the English ones; NULL when
 * not found. [control] */
CF_EXPORT CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef resourceName,
                                           CFStringRef resourceType, CFStringRef subDirName);

/* Owned translation of key from "<tableName>.strings" (NULL table:
 * "Localizable") in the current language, else in English; when neither has
 * the key: value, or key itself when value is NULL or empty. [control] */
CF_EXPORT CFStringRef CFBundleCopyLocalizedString(CFBundleRef bundle, CFStringRef key,
                                                  CFStringRef value, CFStringRef tableName);

/* Loads the executable (once) into the process; false when it cannot. [control] */
CF_EXPORT Boolean CFBundleLoadExecutable(CFBundleRef bundle);
/* Address of an exported function of the executable, loading it if needed;
 * NULL when absent. [control] */
CF_EXPORT void* CFBundleGetFunctionPointerForName(CFBundleRef bundle, CFStringRef functionName);

CF_EXTERN_C_END

#endif /* CFBUNDLE_H */
