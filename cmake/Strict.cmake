# What the targets of this project are compiled with.

# For all of them: warnings and, if asked for, sanitizers. Where warnings are errors, functions that
# Qt has deprecated up to 6.10 are not there at all.
function(updater_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 13)
    target_compile_options(${target} PRIVATE -Wreserved-identifier)
  endif()
  if(CMAKE_COMPILE_WARNING_AS_ERROR)
    # The second name is that of Qt before 6.5.
    target_compile_definitions(${target} PRIVATE
      QT_DISABLE_DEPRECATED_UP_TO=0x060A00 QT_DISABLE_DEPRECATED_BEFORE=0x060A00)
  endif()
  if(UPDATER_SANITIZE)
    target_compile_options(${target} PRIVATE
      -fsanitize=${UPDATER_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${UPDATER_SANITIZE})
  endif()
endfunction()

# For the product: the strict side of Qt, too. (Tests are full of short literals and go without.)
function(updater_strict target)
  updater_warnings(${target})
  target_compile_definitions(${target} PRIVATE
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII
    QT_NO_CAST_FROM_BYTEARRAY
    QT_NO_FOREACH
    QT_NO_KEYWORDS
    QT_NO_URL_CAST_FROM_STRING
    QT_USE_QSTRINGBUILDER
  )
endfunction()
