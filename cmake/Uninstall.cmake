# Removes what "cmake --install" put in place, as its manifest lists it; run from the build
# folder ("sudo make uninstall" in the source folder). The key service is stopped first, so
# that no running copy is left behind.
find_program(SYSTEMCTL systemctl)
if(SYSTEMCTL)
    execute_process(COMMAND ${SYSTEMCTL} disable --now velotide-keyd.service
                    OUTPUT_QUIET ERROR_QUIET)
endif()
if(NOT EXISTS install_manifest.txt)
    message(FATAL_ERROR "nothing was installed from this build folder (no install_manifest.txt)")
endif()
file(STRINGS install_manifest.txt installed)
foreach(path IN LISTS installed)
    if(EXISTS "${path}" OR IS_SYMLINK "${path}")
        message(STATUS "Removing ${path}")
        file(REMOVE "${path}")
    endif()
endforeach()
if(SYSTEMCTL)
    execute_process(COMMAND ${SYSTEMCTL} daemon-reload OUTPUT_QUIET ERROR_QUIET)
endif()
