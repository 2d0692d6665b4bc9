# What `cmake --install` puts down: the host-facing headers under include/velmora/ (with every
# header of ours they include, folders kept), the libraries, the tools, the CMake package
# VelmoraIdentity (imported targets Velmora::runtime, Velmora::identity, Velmora::host) and the
# pkg-config file velmora-identity.pc. Included from code/CMakeLists.txt once the targets exist.
include(CMakePackageConfigHelpers)

# Adds to `out_var` the headers `headers` (paths from `root`) and, recursively, each header of
# ours they include with "...".
function(velmora_header_closure out_var root)
  set(pending ${ARGN})
  set(found "")
  while(pending)
    list(POP_FRONT pending header)
    if(header IN_LIST found OR NOT EXISTS ${root}/${header})
      continue()
    endif()
    list(APPEND found ${header})
    file(STRINGS ${root}/${header} includes REGEX "^#(include|import) \"[^\"]+\"")
    foreach(line IN LISTS includes)
      string(REGEX REPLACE "^#(include|import) \"([^\"]+)\".*" "\\2" included "${line}")
      list(APPEND pending ${included})
    endforeach()
  endwhile()
  set(${out_var} ${found} PARENT_SCOPE)
endfunction()

set(VELMORA_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/velmora)
set(VELMORA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VelmoraIdentity)

velmora_header_closure(velmora_headers ${VELMORA_SOURCE_ROOT}
  ${VELMORA_RUNTIME_PUBLIC_HEADERS} ${VELMORA_IDENTITY_PUBLIC_HEADERS} ${VELMORA_HOST_PUBLIC_HEADERS}
  ${VELMORA_HOST_OBJC_PUBLIC_HEADERS})
foreach(header IN LISTS velmora_headers)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${VELMORA_SOURCE_ROOT}/${header} DESTINATION ${VELMORA_INSTALL_INCLUDEDIR}/${folder})
endforeach()

set_target_properties(velmora_runtime PROPERTIES EXPORT_NAME runtime)
set_target_properties(velmora_identity PROPERTIES EXPORT_NAME identity)
set_target_properties(velmora_host PROPERTIES EXPORT_NAME host)
install(TARGETS velmora_runtime velmora_identity velmora_host EXPORT VelmoraIdentityTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${VELMORA_INSTALL_INCLUDEDIR})
# The Objective-C layer links GNUstep through flags found at configure time: installed as a
# library beside the others, outside the CMake package.
if(TARGET velmora_host_objc)
  install(TARGETS velmora_host_objc ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
foreach(tool velmora-identity velmora-identity-server)
  if(TARGET ${tool})
    install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

install(EXPORT VelmoraIdentityTargets NAMESPACE Velmora:: DESTINATION ${VELMORA_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VelmoraIdentityConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VelmoraIdentityConfig.cmake INSTALL_DESTINATION ${VELMORA_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VelmoraIdentityConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VelmoraIdentityConfig.cmake ${PROJECT_BINARY_DIR}/VelmoraIdentityConfigVersion.cmake
  DESTINATION ${VELMORA_CMAKE_DIR})

# The .pc file finds its prefix from where it lies, so an install into any --prefix works.
set(VELMORA_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH VELMORA_PC_TO_PREFIX /prefix/${VELMORA_PKGCONFIG_DIR} /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/velmora-identity.pc.in ${PROJECT_BINARY_DIR}/velmora-identity.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/velmora-identity.pc DESTINATION ${VELMORA_PKGCONFIG_DIR})
