set(VEXIM_SANITIZE "" CACHE STRING "Sanitizers for our own targets, as -fsanitize= takes them")
add_library(vexim_sanitizers INTERFACE)
if(VEXIM_SANITIZE)
  target_compile_options(vexim_sanitizers INTERFACE -fsanitize=${VEXIM_SANITIZE}
    -fno-omit-frame-pointer)
  if(VEXIM_SANITIZE MATCHES "thread")
    # Asio's fences are invisible to ThreadSanitizer; the locks beside them order everything that we
    # use.
    target_compile_definitions(vexim_sanitizers INTERFACE BOOST_ASIO_DISABLE_FENCED_BLOCK)
  else()
    target_compile_options(vexim_sanitizers INTERFACE -fno-sanitize-recover=all)
  endif()
  target_link_options(vexim_sanitizers INTERFACE -fsanitize=${VEXIM_SANITIZE})
endif()
