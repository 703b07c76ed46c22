# cmake -DSOURCE=<extension folder> -DOUTPUT=<folder> -P FirefoxManifest.cmake
# The add-on as Firefox takes it: the same files, with a manifest without
# Chromium's `key` (which fixes the add-on's id there; Firefox reads its id
# from browser_specific_settings) and without the service worker (Firefox runs
# background.js as a background script).
file(READ ${SOURCE}/manifest.json manifest)
string(JSON manifest REMOVE "${manifest}" key)
string(JSON manifest REMOVE "${manifest}" background service_worker)
file(REMOVE_RECURSE ${OUTPUT})
file(MAKE_DIRECTORY ${OUTPUT}/icons)
file(WRITE ${OUTPUT}/manifest.json "${manifest}\n")
file(COPY ${SOURCE}/background.js DESTINATION ${OUTPUT})
file(GLOB icons ${SOURCE}/icons/*.png)
file(COPY ${icons} DESTINATION ${OUTPUT}/icons)
