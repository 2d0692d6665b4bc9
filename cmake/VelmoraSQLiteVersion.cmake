# The hit queue deletes rows with DELETE ... RETURNING, which SQLite has had since 3.35.
set(VELMORA_SQLITE_MIN_VERSION 3.35)

function(velmora_check_sqlite_version version)
  if(NOT version OR version VERSION_LESS VELMORA_SQLITE_MIN_VERSION)
    message(FATAL_ERROR "SQLite ${version} found, but velmora-identity needs SQLite ${VELMORA_SQLITE_MIN_VERSION} "
                        "or newer (DELETE ... RETURNING): install a newer libsqlite3-dev")
  endif()
endfunction()

# As a script (cmake -DVERSION=x.y.z -P this file) it checks one version; the tests use that.
if(CMAKE_SCRIPT_MODE_FILE)
  velmora_check_sqlite_version("${VERSION}")
endif()
