# Installation with the usual GNU directories, the man page built from its
# scdoc source, and the Debian package made by CPack.
#
#   cmake --install build --prefix /usr/local        (or DESTDIR=... for staging)
#   (cd build && cpack -G DEB)                        -> kem-vision-ocr_<version>_<arch>.deb
include(GNUInstallDirs)

# The man page: written once in man/kem-vision-ocr.1.scd, turned into roff
# here and compressed as Debian installs man pages.
find_program(KVO_SCDOC scdoc REQUIRED)
find_program(KVO_GZIP gzip REQUIRED)
set(KVO_MAN_PAGE ${CMAKE_BINARY_DIR}/man/kem-vision-ocr.1)
add_custom_command(
  OUTPUT ${KVO_MAN_PAGE} ${KVO_MAN_PAGE}.gz
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/man
  COMMAND ${KVO_SCDOC} < ${PROJECT_SOURCE_DIR}/man/kem-vision-ocr.1.scd > ${KVO_MAN_PAGE}
  COMMAND ${KVO_GZIP} -9nc ${KVO_MAN_PAGE} > ${KVO_MAN_PAGE}.gz
  DEPENDS ${PROJECT_SOURCE_DIR}/man/kem-vision-ocr.1.scd
  COMMENT "Building the man page kem-vision-ocr(1)")
add_custom_target(man ALL DEPENDS ${KVO_MAN_PAGE} ${KVO_MAN_PAGE}.gz)

# The Debian changelog, compressed like the man page.
set(KVO_DEB_CHANGELOG ${CMAKE_BINARY_DIR}/packaging/changelog.gz)
add_custom_command(
  OUTPUT ${KVO_DEB_CHANGELOG}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/packaging
  COMMAND ${KVO_GZIP} -9nc ${PROJECT_SOURCE_DIR}/packaging/changelog > ${KVO_DEB_CHANGELOG}
  DEPENDS ${PROJECT_SOURCE_DIR}/packaging/changelog)
add_custom_target(packaging_files ALL DEPENDS ${KVO_DEB_CHANGELOG})

install(TARGETS kem-vision-ocr RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${KVO_MAN_PAGE}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES schemas/stdout-line.schema.json schemas/result.schema.json
        DESTINATION ${CMAKE_INSTALL_DATADIR}/kem-vision-ocr/schemas)
install(PROGRAMS tools/kvo-batch tools/kvo-inspect
        DESTINATION ${CMAKE_INSTALL_DATADIR}/kem-vision-ocr/tools)
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
it. JSON Schemas, host examples in Python and Node.js, a region viewer and a\n\
batch runner built on GNU parallel are included.")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# dpkg-shlibdeps adds the shared libraries the binary really links; the
# models and the reference typefaces are read at run time, so their
# packages are named here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "tesseract-ocr-chi-sim, tesseract-ocr-chi-tra, tesseract-ocr-eng, fonts-noto-cjk, fonts-arphic-gkai00mp, fonts-arphic-bkai00mp")
# The tools in /usr/share/kem-vision-ocr/tools: kvo-batch needs GNU parallel,
# kvo-inspect Python with PIL. The helper itself needs neither.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "parallel, python3, python3-pil")
include(CPack)
