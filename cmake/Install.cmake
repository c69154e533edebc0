# Installation with the usual GNU directories, the man pages built from
# their scdoc sources, and the Debian package made by CPack.
#
#   cmake --install build --prefix /usr/local        (or DESTDIR=... for staging)
#   (cd build && cpack -G DEB)                        -> kem-vision-ocr_<version>_<arch>.deb
#
# Installing builds what is installed and nothing else: `install` (and so
# cpack) does not depend on `all`, which holds the test suite, the fuzzers'
# support and the benchmarks; the first install rule builds the helper, the
# man pages and the compressed changelog instead.
include(GNUInstallDirs)
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY TRUE)

# The man pages: written once in man/*.1.scd, turned into roff here and
# compressed as Debian installs them. The preamble's @VERSION@ becomes the
# version shown in the footer; the date is the changelog's (reproducible).
# man/roff-fixes.sed keeps identifiers whole: scdoc turns hyphenation off
# before .TH, which the man macros turn back on, so `.nh` follows .TH; and
# `.cflags 0` takes the break-after property off the hyphen characters.
find_program(KVO_SCDOC scdoc REQUIRED)
find_program(KVO_GZIP gzip REQUIRED)
find_program(KVO_SED sed REQUIRED)
file(STRINGS ${PROJECT_SOURCE_DIR}/packaging/changelog KVO_CHANGELOG_TRAILER REGEX "^ -- ")
string(REGEX REPLACE ".*>  " "" KVO_CHANGELOG_DATE "${KVO_CHANGELOG_TRAILER}")
execute_process(COMMAND date -d "${KVO_CHANGELOG_DATE}" +%s OUTPUT_VARIABLE KVO_SOURCE_DATE_EPOCH
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(KVO_MAN_PAGES kem-vision-ocr kvo-batch kvo-inspect)
set(KVO_MAN_OUTPUTS)
foreach(page IN LISTS KVO_MAN_PAGES)
  set(source ${PROJECT_SOURCE_DIR}/man/${page}.1.scd)
  set(roff ${CMAKE_BINARY_DIR}/man/${page}.1)
  add_custom_command(
    OUTPUT ${roff} ${roff}.gz
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/man
    COMMAND ${KVO_SED} "s/@VERSION@/${PROJECT_VERSION}/g" ${source} > ${roff}.scd
    COMMAND ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=${KVO_SOURCE_DATE_EPOCH} ${KVO_SCDOC} < ${roff}.scd > ${roff}.raw
    COMMAND ${KVO_SED} -f ${PROJECT_SOURCE_DIR}/man/roff-fixes.sed ${roff}.raw > ${roff}
    COMMAND ${KVO_GZIP} -9nc ${roff} > ${roff}.gz
    DEPENDS ${source} ${PROJECT_SOURCE_DIR}/man/roff-fixes.sed ${PROJECT_SOURCE_DIR}/packaging/changelog
    COMMENT "Building the man page ${page}(1)")
  list(APPEND KVO_MAN_OUTPUTS ${roff} ${roff}.gz)
  install(FILES ${roff}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endforeach()
add_custom_target(man ALL DEPENDS ${KVO_MAN_OUTPUTS})

# The Debian changelog, compressed like the man pages.
set(KVO_DEB_CHANGELOG ${CMAKE_BINARY_DIR}/packaging/changelog.gz)
add_custom_command(
  OUTPUT ${KVO_DEB_CHANGELOG}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/packaging
  COMMAND ${KVO_GZIP} -9nc ${PROJECT_SOURCE_DIR}/packaging/changelog > ${KVO_DEB_CHANGELOG}
  DEPENDS ${PROJECT_SOURCE_DIR}/packaging/changelog)
add_custom_target(packaging_files ALL DEPENDS ${KVO_DEB_CHANGELOG})

# What the package holds is built first (see the top of this file). This
# rule runs before every other install rule: it is the first one.
install(CODE "execute_process(COMMAND \"${CMAKE_COMMAND}\" --build \"${CMAKE_BINARY_DIR}\"
                                --target kem-vision-ocr man packaging_files
                              COMMAND_ERROR_IS_FATAL ANY)")
install(TARGETS kem-vision-ocr RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(PROGRAMS tools/kvo-batch tools/kvo-inspect DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES schemas/stdout-line.schema.json schemas/result.schema.json
        DESTINATION ${CMAKE_INSTALL_DATADIR}/kem-vision-ocr/schemas)
install(FILES examples/python/kvo_host.py examples/node/kvo-host.mjs examples/README.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(FILES packaging/copyright ${KVO_DEB_CHANGELOG} DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kem-vision-ocr)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "kem-vision-ocr maintainers <maintainers@kem-vision-ocr.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "OCR helper for Chinese and English images and PDFs")
set(CPACK_PACKAGE_DESCRIPTION
  "kem-vision-ocr reads one PNG, JPEG, WebP or PDF document per run, recognises\n\
its text lines (Simplified Chinese, Traditional Chinese, English) with\n\
confidences and pixel polygons in reading order, writes result.json, ocr.txt\n\
and page images, and prints exactly one JSON line for the host that started\n\
it. JSON Schemas, host examples in Python and Node.js, a region viewer\n\
(kvo-inspect) and a batch runner built on GNU parallel (kvo-batch) are\n\
included.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Stripped as dh_strip strips: no symbols, no .comment or .note sections.
# CPack's own stripping keeps those two sections, so it is off and the
# staged binary is stripped by a script run after CPack's install step.
set(CPACK_STRIP_FILES OFF)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/strip.cmake)
# dpkg-shlibdeps adds the shared libraries the binary really links. The
# models are read at run time and nothing is recognised without them:
# Depends. The reference typefaces only help the choice between Simplified
# and Traditional Chinese when the models' votes do not settle it (the
# helper works without them): Recommends, with the tools' needs.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "tesseract-ocr-chi-sim, tesseract-ocr-chi-tra, tesseract-ocr-eng")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS
  "fonts-noto-cjk, fonts-arphic-gkai00mp, fonts-arphic-bkai00mp, parallel, python3, python3-pil")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "nodejs, openssh-client, rsync")
# postrm: what Python leaves beside the example module when it is imported
# from the installed docs.
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/postrm)
include(CPack)
