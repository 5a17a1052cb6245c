# Debian packages, made by `cpack -G DEB`: libvantamo1 (shared libraries), libvantamo-dev (headers,
# static libraries, what find_package and pkg-config read), vantamo-tools (the program).

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vantamo)
set(CPACK_PACKAGE_VENDOR Vantamo)
set(CPACK_PACKAGE_CONTACT "Vantamo developers <vantamo@localhost>" CACHE STRING
  "Maintainer of the Debian packages")
set(CPACK_PACKAGE_DIRECTORY ${Vantamo_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_SET_DESTDIR ON)  # what is installed for /usr is told so
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(runtime libvantamo${VANTAMO_ABI_VERSION})
set(about "Vantamo reports what the users of an application do: page views, cart and purchase lines,
orders and more go as small tags, in order, to an endpoint of yours over HTTP, and are kept on disk
until it has answered.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "client analytics library for C++
${about}\n.\nThis package has the shared libraries.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libvantamo-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${runtime} (= ${Vantamo_VERSION})")
# What the static libraries are linked with; the shared ones need none of these.
set(CPACK_DEBIAN_DEV_PACKAGE_RECOMMENDS "liburiparser-dev, libmd-dev, libsqlitecpp-dev, \
libsqlite3-dev, libcurl4-openssl-dev | libcurl-dev, libmnl-dev, zlib1g-dev")
set(CPACK_COMPONENT_DEV_DESCRIPTION "client analytics library for C++ (development files)
${about}\n.\nThis package has what a program is built with.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vantamo-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "client analytics library for C++ (command-line program)
${about}\n.\nThis package has the program vantamo, which runs scripts of events, checks an
installation and works on a queue.")

include(CPack)
