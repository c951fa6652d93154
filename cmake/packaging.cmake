# Installation of the documents beside the program: the manual page, the bash and zsh
# completions, the licence as a machine-readable copyright file and the changelog; and the
# Debian package made from the same install rules (cpack -G DEB in the build folder).
#
# The manual page and the changelog are installed compressed, as Debian policy asks
# (gzip -9n: no name or time in the header, so the same input gives the same bytes).

include(GNUInstallDirs)

find_program(VARN_GZIP gzip REQUIRED)
set(varn_man_gz ${PROJECT_BINARY_DIR}/varn.1.gz)
set(varn_changelog_gz ${PROJECT_BINARY_DIR}/changelog.gz)
add_custom_command(OUTPUT ${varn_man_gz}
  COMMAND ${VARN_GZIP} -9n -c ${PROJECT_SOURCE_DIR}/varn.1 > ${varn_man_gz}
  DEPENDS ${PROJECT_SOURCE_DIR}/varn.1
  COMMENT "Compressing the manual page")
add_custom_command(OUTPUT ${varn_changelog_gz}
  COMMAND ${VARN_GZIP} -9n -c ${PROJECT_SOURCE_DIR}/cmake/debian/changelog > ${varn_changelog_gz}
  DEPENDS ${PROJECT_SOURCE_DIR}/cmake/debian/changelog
  COMMENT "Compressing the changelog")
add_custom_target(varn_documents ALL DEPENDS ${varn_man_gz} ${varn_changelog_gz})

install(FILES ${varn_man_gz} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_SOURCE_DIR}/completions/varn
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES ${PROJECT_SOURCE_DIR}/completions/_varn
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright ${varn_changelog_gz}
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/varn)

set(CPACK_GENERATOR "DEB")
set(CPACK_PACKAGE_NAME "varn")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_VENDOR "varn developers")
set(CPACK_PACKAGE_CONTACT "varn developers <varn@example.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "report the ICMP and ICMPv6 frames of pcap captures")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_PACKAGE_NAME "varn")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_VERSION "${PROJECT_VERSION}")
# No Debian revision: the package is made from this tree by its own developers (a native
# package), so its changelog is changelog.gz, cmake/debian/changelog compressed.
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "varn developers <varn@example.invalid>")
set(CPACK_DEBIAN_PACKAGE_SECTION "net")
set(CPACK_DEBIAN_PACKAGE_PRIORITY "optional")
# The summary makes the first line of the package description, this text the lines below it.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "varn reads pcap captures, keeps the ICMP and ICMPv6 frames, narrows them by
frame number, wire size, capture time, IPv4 or IPv6 addresses (one or both
directions), a byte pattern with wildcards and ICMP types, codes and
identifiers, and writes one metadata line per frame: UTC time, addresses,
TTL, sizes, the MD5 digest of the payload, the ICMP type name and a warning
when the payload looks random. Headers and payloads can be dumped as a hex
view, as text, as raw bytes or as the ASCII and UTF-16 strings inside them.
.
By default it reads classic little-endian microsecond pcap of Ethernet
frames; -any_format adds pcapng, the other pcap variants, Linux cooked, raw
IP and loopback captures, VLAN tags and IPv6 extension headers. -json writes
the report as JSON Lines. -summary reports ICMP conversations instead of
frames: echo pairing, the sender recognised by its payload, and indicators of
ICMP tunnels and exfiltration.")

# Dependencies from the libraries the program links (dpkg-shlibdeps), or stated by hand where
# that tool is missing.
find_program(VARN_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(VARN_DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libstdc++6 (>= 12), libgcc-s1 (>= 3.0)")
endif()

include(CPack)
