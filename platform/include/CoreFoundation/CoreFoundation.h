/*
 * Object library umbrella header: reference-counted strings, numbers,
 * booleans, data, arrays, dictionaries, URLs, bundles and property lists
 * shared by the plug-in and its hosts. See CFBase.h for the ownership rule.
 */
#ifndef COREFOUNDATION_H
#define COREFOUNDATION_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFURL.h>
#include <CoreFoundation/CFError.h>
#include <CoreFoundation/CFPropertyList.h>
#include <CoreFoundation/CFBundle.h>

#endif /* COREFOUNDATION_H */
