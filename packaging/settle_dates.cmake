# With SOURCE_DATE_EPOCH set, the files of the package get that date, so that the same sources make
# the same package.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(COMMAND find "${CPACK_TEMPORARY_INSTALL_DIRECTORY}" -exec
                          touch --no-dereference "--date=@$ENV{SOURCE_DATE_EPOCH}" {} +
                  COMMAND_ERROR_IS_FATAL ANY)
endif()
