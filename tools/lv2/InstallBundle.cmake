# Installs the LV2 bundle the build assembled (VANDREL_LV2_BUNDLE_DIR) into
# the first folder of LV2_PATH, or ~/.lv2 without it, replacing an older copy
# whole. DESTDIR is honoured.
if(NOT "$ENV{LV2_PATH}" STREQUAL "")
  string(REPLACE ":" ";" folders "$ENV{LV2_PATH}")
  list(GET folders 0 destination)
else()
  set(destination "$ENV{HOME}/.lv2")
endif()
if(NOT EXISTS ${VANDREL_LV2_BUNDLE_DIR}/manifest.ttl)
  message(FATAL_ERROR "No LV2 bundle at ${VANDREL_LV2_BUNDLE_DIR}: build it first (target VandrelLv2Bundle).")
endif()
file(REMOVE_RECURSE "$ENV{DESTDIR}${destination}/Vandrel.lv2")
file(INSTALL ${VANDREL_LV2_BUNDLE_DIR} DESTINATION "$ENV{DESTDIR}${destination}" USE_SOURCE_PERMISSIONS)
