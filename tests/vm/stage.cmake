# Fills GUEST_DIR with what the guest sees: the installed tree and the scripts.
file(REMOVE_RECURSE ${GUEST_DIR})
file(MAKE_DIRECTORY ${GUEST_DIR}/tree)
set(ENV{DESTDIR} ${GUEST_DIR}/tree)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix /usr
  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(GLOB scripts ${SCRIPTS_DIR}/*.sh ${SCRIPTS_DIR}/*.py)
set(tests ${SCRIPTS_DIR}/..)
file(COPY ${scripts} ${tests}/effective/tried.py ${tests}/support/socket_requests.py
  ${tests}/samba/door_model.py ${tests}/samba/people.py DESTINATION ${GUEST_DIR})
file(COPY ${SCRIPTS_DIR}/first_hour DESTINATION ${GUEST_DIR})
