# Warnings for all code of the project; errors where KORVAIN_STATISTIC_WERROR says so.
function(korvain_statistic_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
  if(KORVAIN_STATISTIC_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
