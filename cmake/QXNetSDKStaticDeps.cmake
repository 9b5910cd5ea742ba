# What a consumer of the installed static archive must link besides it, read from the
# archive's own link interface, so that a dependency added to the library later (FFmpeg
# for the MP4 writer, say) reaches the CMake package and qxnetsdk.pc without a second list.

# The pkg-config module names that pkg_check_modules(<prefix> ...) found.
function(qxnet_pkg_modules prefix out)
  get_cmake_property(vars CACHE_VARIABLES)
  set(mods)
  foreach(v IN LISTS vars)
    if(v STREQUAL "${prefix}_MODULE_NAME")
      list(APPEND mods "${${v}}")
    elseif(v MATCHES "^${prefix}_(.+)_MODULE_NAME$" AND "${CMAKE_MATCH_1}" STREQUAL "${${v}}")
      list(APPEND mods "${${v}}")
    endif()
  endforeach()
  if(NOT mods)
    message(FATAL_ERROR "no pkg-config module recorded for PkgConfig::${prefix}")
  endif()
  set(${out} ${mods} PARENT_SCOPE)
endfunction()

# find_code: CMake lines for QXNetSDKConfig.cmake that recreate the imported targets the
# archive links; requires: the modules for qxnetsdk.pc's Requires.private; pc_files: the
# .pc file of each module (the Debian -dev package is the one that owns it).
function(qxnet_static_dependencies target find_code requires pc_files)
  get_target_property(deps ${target} INTERFACE_LINK_LIBRARIES)
  set(code "")
  set(mods_all)
  set(files)
  foreach(dep IN LISTS deps)
    string(REGEX REPLACE "^\\$<LINK_ONLY:(.*)>$" "\\1" dep "${dep}")
    if(dep STREQUAL "Threads::Threads")
      string(APPEND code "find_dependency(Threads)\n")
    elseif(dep MATCHES "^PkgConfig::(.+)$")
      set(prefix ${CMAKE_MATCH_1})
      qxnet_pkg_modules(${prefix} mods)
      if(NOT mods_all)
        string(APPEND code "find_dependency(PkgConfig)\n")
      endif()
      list(JOIN mods " " mods_text)
      string(APPEND code "pkg_check_modules(${prefix} QUIET IMPORTED_TARGET ${mods_text})\n"
        "if(NOT ${prefix}_FOUND)\n"
        "  set(QXNetSDK_NOT_FOUND_MESSAGE \"the static archive needs pkg-config modules: ${mods_text}\")\n"
        "  set(QXNetSDK_FOUND FALSE)\n  return()\nendif()\n")
      list(APPEND mods_all ${mods})
      foreach(m IN LISTS mods)
        execute_process(COMMAND ${PKG_CONFIG_EXECUTABLE} --variable=pcfiledir ${m}
          OUTPUT_VARIABLE dir OUTPUT_STRIP_TRAILING_WHITESPACE)
        list(APPEND files "${dir}/${m}.pc")
      endforeach()
    else()
      message(FATAL_ERROR "${target} links '${dep}': cmake/QXNetSDKStaticDeps.cmake must learn "
        "how a consumer of the installed archive finds it")
    endif()
  endforeach()
  list(REMOVE_DUPLICATES mods_all)
  list(JOIN mods_all ", " req)
  set(${find_code} "${code}" PARENT_SCOPE)
  set(${requires} "${req}" PARENT_SCOPE)
  set(${pc_files} "${files}" PARENT_SCOPE)
endfunction()
