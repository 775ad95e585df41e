# Copies the unit's component bundle and the runtime libraries into the LV2
# bundle, pointing their library search paths into it, so that the bundle
# works wherever it is moved.
# cmake -DBUNDLE=dir -DCOMPONENT=dir -DAUDIOUNIT=lib -DCOREFOUNDATION=lib -P AssembleBundle.cmake
file(REMOVE_RECURSE ${BUNDLE}/Vandrel.component)
file(COPY ${COMPONENT}/ DESTINATION ${BUNDLE}/Vandrel.component)
# Vandrel.component/Contents/Linux/Vandrel: the libraries are three folders up.
file(RPATH_SET FILE ${BUNDLE}/Vandrel.component/Contents/Linux/Vandrel NEW_RPATH "$ORIGIN/../../..")
file(COPY ${AUDIOUNIT} ${COREFOUNDATION} DESTINATION ${BUNDLE})
get_filename_component(audiounit ${AUDIOUNIT} NAME)
file(RPATH_SET FILE ${BUNDLE}/${audiounit} NEW_RPATH "$ORIGIN")
