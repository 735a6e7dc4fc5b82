# Which tests a build has. The release build has every one. Builds that look more closely have those in which they can find
# something; what is left out of them is named here, so that a test that is new runs everywhere until somebody decides.

# Texts, scripts and installed files. (Nor are the pages looked at in a browser but in the release build: what a browser asks
# of the programs is asked by system.screen* too.)
set(no_program check.arrows check.concerning check.coverage check.lint check.posix check.sdk check.test_names
  system.documents system.installing system.manuals system.push_json system.run)

# The address sanitizer: everything that runs code of ours. system.installer_killed stops before each system call the code
# that system.installer runs to its end; system.limits takes away addresses and descriptors that sanitizers need for
# themselves; unit.serial.memory fails allocations, and sanitizers have an allocator of their own.
set(not_under_address ${no_program} system.installer_killed system.limits unit.serial.memory)

# The thread sanitizer: everything with more than one thread.
set(not_under_thread ${not_under_address} model.compare
  fuzz.answer_page fuzz.base64 fuzz.body_framing fuzz.connection fuzz.multipart fuzz.next_param fuzz.notification
  fuzz.package fuzz.page fuzz.request_head fuzz.serial fuzz.url
  system.clock system.http_client system.installer system.installer_faults system.pack system.push_http_answers
  system.push_serial system.signatures
  unit.base unit.cloudproxy unit.upload.activity unit.upload.memory unit.platform.cloudproxyd unit.platform.controllerd
  unit.platform.jxapp unit.platform.openssl unit.platform.zorhtml unit.platform.zorplatforminfo unit.platform.zorsec
  unit.tools.jxpack unit.tools.jxpush unit.tools.jxpush.http unit.tools.jxpush.line unit.tools.jxpush.port)

# The counters of coverage: what reaches the program and its subsystems.
set(not_for_coverage ${no_program} fuzz.answer_page fuzz.package fuzz.page fuzz.screen_request
  system.cloudproxyd system.cloudproxyd_check system.controllerd system.installer system.installer_faults
  system.installer_killed system.notifications system.pack system.push_many system.push_serial system.sanitizers system.screen
  system.screen_life system.screen_requests system.signatures
  unit.base unit.platform.cloudproxyd unit.platform.controllerd unit.platform.jsproc unit.platform.jxapp
  unit.platform.openssl unit.platform.zorguiprt unit.platform.zorhtml unit.platform.zoripc unit.platform.zorplatforminfo unit.platform.zorsec
  unit.tools.jxpack unit.tools.jxpush unit.tools.jxpush.fleet unit.tools.jxpush.http unit.tools.jxpush.line unit.tools.jxpush.port)

if(JX_SANITIZE MATCHES thread)
  set(JX_TESTS_ELSEWHERE ${not_under_thread})
elseif(JX_SANITIZE)
  set(JX_TESTS_ELSEWHERE ${not_under_address})
elseif(JX_COVERAGE)
  set(JX_TESTS_ELSEWHERE ${not_for_coverage})
else()
  set(JX_TESTS_ELSEWHERE system.sanitizers)  # needs a program with a fault that a sanitizer finds
endif()

# Whether this build has the test; every test asks, before it is added.
function(jx_test_here result name)
  set_property(GLOBAL APPEND PROPERTY JX_TESTS_ASKED ${name})
  if(name IN_LIST JX_TESTS_ELSEWHERE)
    set(${result} FALSE PARENT_SCOPE)
  else()
    set(${result} TRUE PARENT_SCOPE)
  endif()
endfunction()

# Once every test has asked: a name above that no test has would leave out nothing.
function(jx_check_tests_elsewhere)
  get_property(asked GLOBAL PROPERTY JX_TESTS_ASKED)
  foreach(name IN LISTS JX_TESTS_ELSEWHERE)
    if(NOT name IN_LIST asked)
      message(SEND_ERROR "cmake/Tests.cmake leaves out ${name}, which is no test")
    endif()
  endforeach()
endfunction()
