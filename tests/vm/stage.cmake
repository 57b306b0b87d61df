# Fills GUEST_DIR with what the guest sees: the installed tree and the scripts.
file(REMOVE_RECURSE ${GUEST_DIR})
file(MAKE_DIRECTORY ${GUEST_DIR}/tree)
set(ENV{DESTDIR} ${GUEST_DIR}/tree)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix /usr
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(GLOB scripts ${SCRIPTS_DIR}/*.sh)
file(COPY ${scripts} DESTINATION ${GUEST_DIR})
