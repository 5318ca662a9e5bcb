# Script mode, two uses:
#   cmake -DSOURCE_DIR=... -DWORK_DIR=... -DCXX_COMPILER=... -DGENERATOR=... [-DMAKE_PROGRAM=...]
#         [-DDIALOG=ON] -P this
#     Builds the library's default configuration from SOURCE_DIR in WORK_DIR/build, installs it
#     into WORK_DIR/prefix, and fails when a library there exports a KIVMV name that the installed
#     headers do not declare.
#   cmake -DSELF_TEST=ON -DSOURCE_DIR=... -P this
#     Puts a fixed list of symbols through the same rule, against the public headers of SOURCE_DIR.
#
# When a symbol counts as declared (nm -C names, one at a time):
# - Names of instantiations that live in std:: (or libstdc++'s __gnu_cxx::) or cv:: are skipped:
#   the toolchain exports those for any type an exported function uses.
# - The prefixes "typeinfo for ", "vtable for ", "guard variable for ", "non-virtual thunk to " and
#   their kin are dropped; template and call argument lists are set aside (a local name after the
#   argument list, as in f()::table, belongs to f).
# - Every KIVMV-qualified name left anywhere in the symbol, the symbol's own name as well as those
#   inside template or call arguments, must then be declared. Without the leading KIVMV::, each
#   of its components must occur as a whole word in the headers' code (comments removed); a
#   component followed by another one (a class or namespace), and the class that a typeinfo or
#   vtable belongs to, must be defined there ("class X {" or "class X :"), because a forward
#   declaration makes neither its members nor its type information part of the API.
# - Constructors and destructors are the class's own name; operators are one word each
#   ("operator<" and "operator<<" differ), and a defined class implicitly declares operator=.
cmake_minimum_required(VERSION 3.16)

# Operator spellings, the longest first so that a shorter one never takes part of a longer one.
set(kivlut_operators
    "operator new[]" "operator delete[]" "operator new" "operator delete"
    "operator()" "operator[]" "operator->*" "operator<<=" "operator>>=" "operator<=>"
    "operator->" "operator<<" "operator>>" "operator<=" "operator>=" "operator==" "operator!="
    "operator+=" "operator-=" "operator*=" "operator/=" "operator%=" "operator&=" "operator|="
    "operator^=" "operator&&" "operator||" "operator++" "operator--"
    "operator<" "operator>" "operator+" "operator-" "operator*" "operator/" "operator%"
    "operator&" "operator|" "operator^" "operator~" "operator!" "operator=" "operator,")
list(FIND kivlut_operators "operator=" kivlut_assignment_index)
set(kivlut_assignment "operator_KIVOP${kivlut_assignment_index}_")

# Turns every operator name into one identifier, in symbols and headers alike, so that its
# brackets are not read as template or call brackets.
function(kivlut_mask_operators var)
  string(REGEX REPLACE "operator[ \t\r\n]+([^A-Za-z0-9_ \t\r\n])" "operator\\1" text "${${var}}")
  set(index 0)
  foreach(operator IN LISTS kivlut_operators)
    string(REPLACE "${operator}" "operator_KIVOP${index}_" text "${text}")
    math(EXPR index "${index} + 1")
  endforeach()
  string(REGEX REPLACE "operator ([A-Za-z_])" "operator_KIVCONV_\\1" text "${text}")
  set(${var} "${text}" PARENT_SCOPE)
endfunction()

function(kivlut_unmask_operators var)
  set(text "${${var}}")
  set(index 0)
  foreach(operator IN LISTS kivlut_operators)
    string(REPLACE "operator_KIVOP${index}_" "${operator}" text "${text}")
    math(EXPR index "${index} + 1")
  endforeach()
  string(REPLACE "operator_KIVCONV_" "operator " text "${text}")
  set(${var} "${text}" PARENT_SCOPE)
endfunction()

# Reads the headers into two lists in the caller's scope: kivlut_header_words, every identifier of
# their code, and kivlut_header_scopes, the classes, structs, unions and namespaces they define.
function(kivlut_read_headers)
  set(code "")
  foreach(header ${ARGN})
    file(READ ${header} text)
    string(APPEND code "${text}\n")
  endforeach()
  # Block comments by search: a regular expression over a long comment can exhaust CMake's stack.
  while(TRUE)
    string(FIND "${code}" "/*" open)
    if(open EQUAL -1)
      break()
    endif()
    string(SUBSTRING "${code}" 0 ${open} before)
    math(EXPR body "${open} + 2")
    string(SUBSTRING "${code}" ${body} -1 rest)
    string(FIND "${rest}" "*/" close)
    if(close EQUAL -1)
      set(code "${before}")
      break()
    endif()
    math(EXPR after "${close} + 2")
    string(SUBSTRING "${rest}" ${after} -1 rest)
    set(code "${before} ${rest}")
  endwhile()
  string(REGEX REPLACE "//[^\n]*" "" code "${code}")
  string(REGEX REPLACE "\"([^\"\\\n]|\\\\.)*\"" "\"\"" code "${code}")
  # The list commands below must not read a semicolon of the code as a separator.
  string(REPLACE ";" " " code "${code}")
  kivlut_mask_operators(code)
  string(REGEX MATCHALL "[A-Za-z_][A-Za-z0-9_]*" words "${code}")
  list(REMOVE_DUPLICATES words)
  # "class X {", "class X : public Y {", "struct X final {", "namespace KIVMV::detail {", with an
  # export macro or attribute allowed between the keyword and the name.
  string(REGEX MATCHALL
         "(^|[^A-Za-z0-9_])(class|struct|union|namespace)[ \t\r\n]([^;{}:,]|::)*({|:[^:])"
         definitions "${code}")
  set(scopes "")
  foreach(definition IN LISTS definitions)
    string(REGEX REPLACE "({|:[^:])$" "" definition "${definition}")
    string(REGEX REPLACE "[ \t\r\n]+(final[ \t\r\n]*)?$" "" definition "${definition}")
    if(definition MATCHES "([A-Za-z_][A-Za-z0-9_]*)$")
      list(APPEND scopes ${CMAKE_MATCH_1})
    endif()
  endforeach()
  list(REMOVE_DUPLICATES scopes)
  set(kivlut_header_words "${words}" PARENT_SCOPE)
  set(kivlut_header_scopes "${scopes}" PARENT_SCOPE)
endfunction()

# Sets `out` to "skipped" for a std:: or cv:: instantiation, otherwise to the list of the symbol's
# KIVMV names that the headers do not declare (empty when all are declared). Each is given up to
# its first undeclared component.
function(kivlut_undeclared_names symbol out)
  set(s "${symbol}")
  # Symbol versions, ABI tags and clone suffixes are not part of the name.
  string(REGEX REPLACE "@.*$" "" s "${s}")
  string(REGEX REPLACE "\\[(abi|clone)[^]]*\\]" "" s "${s}")
  set(class_data FALSE)
  set(prefixes "typeinfo name for |typeinfo for |vtable for |VTT for |construction vtable for ")
  string(APPEND prefixes "|non-virtual thunk to |virtual thunk to |covariant return thunk to ")
  string(APPEND prefixes "|guard variable for |TLS init function for |TLS wrapper function for ")
  while(s MATCHES "^(${prefixes})")
    set(prefix "${CMAKE_MATCH_1}")
    string(LENGTH "${prefix}" length)
    string(SUBSTRING "${s}" ${length} -1 s)
    if(prefix MATCHES "^(typeinfo|vtable|VTT|construction)")
      set(class_data TRUE)
    endif()
  endwhile()
  kivlut_mask_operators(s)
  string(REGEX REPLACE "{lambda\\([^{}]*\\)#[0-9]+}" "{lambda}" s "${s}")
  string(REPLACE "(anonymous namespace)" "{anonymous}" s "${s}")

  # Innermost brackets first: template arguments disappear (KIVMV::A<int>::b reads KIVMV::A::b),
  # call arguments become "@" (so f()::table does not read as a member of f); both are kept aside.
  set(arguments "")
  while(TRUE)
    string(REGEX MATCHALL "<[^<>()]*>" angled "${s}")
    string(REGEX REPLACE "<[^<>()]*>" "" s "${s}")
    string(REGEX MATCHALL "\\([^<>()]*\\)" called "${s}")
    string(REGEX REPLACE "\\([^<>()]*\\)" "@" s "${s}")
    if(NOT angled AND NOT called)
      break()
    endif()
    string(APPEND arguments " ${angled} ${called}")
  endwhile()

  # The symbol's own name: what stands before its argument list, after any return type.
  string(REGEX REPLACE "@.*$" "" own "${s}")
  string(REGEX REPLACE "( const| volatile|[ *&])+$" "" own "${own}")
  string(REGEX REPLACE "^.* " "" own "${own}")
  if(own MATCHES "^(std|__gnu_cxx|cv)::")
    set(${out} "skipped" PARENT_SCOPE)
    return()
  endif()

  string(REGEX MATCHALL "KIVMV(::~?[A-Za-z_][A-Za-z0-9_]*)+" names "${s} ${arguments}")
  list(REMOVE_DUPLICATES names)
  set(undeclared "")
  foreach(name IN LISTS names)
    string(REPLACE "::" ";" components "${name}")
    list(REMOVE_AT components 0)
    list(LENGTH components count)
    set(qualified "KIVMV")
    set(previous "")
    set(position 0)
    foreach(component IN LISTS components)
      math(EXPR position "${position} + 1")
      string(APPEND qualified "::${component}")
      string(REGEX REPLACE "^~" "" word "${component}")
      if(position LESS count OR (class_data AND name STREQUAL own))
        list(FIND kivlut_header_scopes "${word}" found)
      elseif(word STREQUAL kivlut_assignment AND previous)
        list(FIND kivlut_header_scopes "${previous}" found)
      else()
        list(FIND kivlut_header_words "${word}" found)
      endif()
      if(found EQUAL -1)
        kivlut_unmask_operators(qualified)
        list(APPEND undeclared "${qualified}")
        break()
      endif()
      set(previous "${word}")
    endforeach()
  endforeach()
  list(REMOVE_DUPLICATES undeclared)
  set(${out} "${undeclared}" PARENT_SCOPE)
endfunction()

if(NOT DEFINED SOURCE_DIR)
  message(FATAL_ERROR "SOURCE_DIR is not set")
endif()

if(SELF_TEST)
  file(GLOB headers ${SOURCE_DIR}/include/*.h ${SOURCE_DIR}/platform/include/*.h)
  if(NOT headers)
    message(FATAL_ERROR "no public headers under ${SOURCE_DIR}/include or platform/include")
  endif()
  kivlut_read_headers(${headers})
  set(failures "")
  set(cases 0)
  # expect(EXPECTED SYMBOL_PIECES...): EXPECTED is "skipped", or the undeclared names the rule must
  # report ("" for a declared symbol); the pieces are joined without spaces into the symbol.
  function(expect expected)
    string(CONCAT symbol ${ARGN})
    kivlut_undeclared_names("${symbol}" verdict)
    if(NOT verdict STREQUAL expected)
      set(failures "${failures}\n  ${symbol}\n    expected [${expected}], got [${verdict}]"
          PARENT_SCOPE)
    endif()
    math(EXPR cases "${cases} + 1")
    set(cases ${cases} PARENT_SCOPE)
  endfunction()

  # Declared by the public headers.
  expect("" "KIVMV::KivLUTSetting::ColorMapLUT(KIVMV::KivRangeImage&, int, KIVMV::KivColorArray*)")
  expect("" "KIVMV::KivLUTSetting::KivLUTSetting()")
  expect("" "KIVMV::KivLUTSetting::~KivLUTSetting()")
  expect("" "typeinfo for KIVMV::KivRangeImage")
  expect("" "vtable for KIVMV::Kiv3DDataConvert")
  expect("" "typeinfo name for KIVMV::KivMultiLanguage")
  expect("" "KIVMV::KivVector3d::operator+(KIVMV::KivVector3d const&) const")
  expect("" "KIVMV::KivVector3d::operator==(KIVMV::KivVector3d const&) const")
  expect("" "KIVMV::KivVarArray::operator[](int) const")
  expect("" "KIVMV::KivColorArray::operator=(KIVMV::KivColorArray&&)")
  expect("" "KIVMV::KivLUTSettingDlg::operator=(KIVMV::KivLUTSettingDlg const&)")
  expect("" "KIVMV::KivMultiLanguage::TableOf(std::__cxx11::basic_string<char, "
         "std::char_traits<char>, std::allocator<char> > const&)@@KIVLUT_0")
  # Instantiations the toolchain exports for types the API uses.
  expect("skipped"
         "void std::vector<KIVMV::KivVar, std::allocator<KIVMV::KivVar> >::_M_realloc_insert"
         "<KIVMV::KivVar const&>(__gnu_cxx::__normal_iterator<KIVMV::KivVar*, std::vector<"
         "KIVMV::KivVar, std::allocator<KIVMV::KivVar> > >, KIVMV::KivVar const&)")
  expect("skipped"
         "typeinfo for std::_Sp_counted_ptr_inplace<KIVMV::KivLUTSettingImpl, std::allocator<void>,"
         " (__gnu_cxx::_Lock_policy)2>")
  expect("skipped" "cv::Mat_<KIVMV::KivColor>::~Mat_()")
  # Internal names.
  expect("KIVMV::ColourGreyImageEqualised"
         "KIVMV::ColourGreyImageEqualised(KIVMV::KivImage const&, KIVMV::KivImage*, int)")
  expect("KIVMV::frame_entries" "KIVMV::frame_entries::kGetColor")
  # The settings parsers are internal to the platform, like its fault seam.
  expect("KIVMV::detail" "KIVMV::detail::ParseIntSetting(char const*, int)")
  expect("KIVMV::KivLUTSetting::NotAMethod" "KIVMV::KivLUTSetting::NotAMethod(int)")
  expect("KIVMV::KivVector3d::operator<"
         "KIVMV::KivVector3d::operator<(KIVMV::KivVector3d const&) const")
  # Only forward-declared, in KivLUTSetting.h: its members are not API, though their names are.
  expect("KIVMV::KivLUTSettingImpl"
         "KIVMV::KivLUTSettingImpl::GetColor(double, int, KIVMV::KivColor*)")
  expect("KIVMV::KivLUTSettingImpl" "typeinfo for KIVMV::KivLUTSettingImpl")
  # Internal template or call arguments, here and of a name outside KIVMV.
  expect("KIVMV::ValueStatistics;KIVMV::FindMinMax"
         "KIVMV::ValueStatistics<float> KIVMV::FindMinMax<float>(float const*, int)")
  expect("KIVMV::LUTMaxEquMin"
         "tbb::detail::d1::start_reduce<tbb::detail::d1::blocked_range<int>, "
         "KIVMV::LUTMaxEquMin<double>, tbb::detail::d1::auto_partitioner const>::execute("
         "tbb::detail::d1::execution_data&)")
  expect("KIVMV::WriteColours;KIVMV::ColourByValue"
         "void KIVMV::WriteColours<KIVMV::ColourByValue<short>(short const*, int, int, "
         "std::array<unsigned char, 4ul> const*, unsigned char*)::{lambda(long)#1}>(long, "
         "KIVMV::ColourByValue<short>(short const*, int, int, std::array<unsigned char, 4ul> "
         "const*, unsigned char*)::{lambda(long)#1} const&)")
  # Local statics: the name before the argument list is what must be declared.
  expect("" "guard variable for KIVMV::language_detail::InstalledFolder[abi:cxx11]()::folder")
  expect("KIVMV::SelectColourTable" "guard variable for KIVMV::SelectColourTable(int)::tables")

  if(failures)
    message(FATAL_ERROR "the export rule misjudged:${failures}")
  endif()
  message(STATUS "the export rule judged all ${cases} known symbols as expected")
  return()
endif()

foreach(var WORK_DIR CXX_COMPILER GENERATOR)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "${var} is not set")
  endif()
endforeach()
find_program(nm_program nm)
if(NOT nm_program)
  message(FATAL_ERROR "nm not found: install binutils")
endif()

include(${CMAKE_CURRENT_LIST_DIR}/run_step.cmake)

# The build folder is kept between runs, so that a second run only rebuilds what changed.
set(build ${WORK_DIR}/build)
set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${prefix})
set(make_program "")
if(MAKE_PROGRAM)
  set(make_program -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM})
endif()
if(NOT DEFINED DIALOG)
  set(DIALOG ON)
endif()
# The installed default configuration; only what costs time and installs nothing is left out, and
# the Python module, which no program links: pybind11 builds it with every symbol hidden.
run_step("configure" ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${build} -G ${GENERATOR} ${make_program}
         -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
         -DKIVLUT_FAULT_INJECTION=OFF -DKIVLUT_BUILD_DIALOG=${DIALOG}
         -DKIVLUT_BUILD_TESTS=OFF -DKIVLUT_BUILD_BENCHMARKS=OFF -DKIVLUT_BUILD_EXAMPLES=OFF
         -DKIVLUT_BUILD_TOOLS=OFF -DKIVLUT_BUILD_PYTHON=OFF)
execute_process(COMMAND nproc OUTPUT_VARIABLE jobs OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT jobs)
  cmake_host_system_information(RESULT jobs QUERY NUMBER_OF_LOGICAL_CORES)
endif()
run_step("build" ${CMAKE_COMMAND} --build ${build} --parallel ${jobs})
run_step("install" ${CMAKE_COMMAND} --install ${build} --prefix ${prefix})

file(GLOB headers ${prefix}/include/KivLUTSetting/*.h)
file(GLOB libraries ${prefix}/lib/lib*.so ${prefix}/lib64/lib*.so)
if(NOT headers OR NOT libraries)
  message(FATAL_ERROR "no headers or no lib*.so installed into ${prefix}")
endif()
kivlut_read_headers(${headers})

set(checked 0)
set(skipped 0)
set(offending "")
set(offending_count 0)
set(undeclared_names "")
foreach(library IN LISTS libraries)
  get_filename_component(library_name ${library} NAME)
  run_step("nm ${library_name}" ${nm_program} -D --defined-only -C ${library})
  string(REGEX MATCHALL "[^\n]*KIVMV[^\n]*" lines "${step_output}")
  foreach(line IN LISTS lines)
    # "<address> <type letter> <name>"
    string(REGEX REPLACE "^[0-9A-Fa-f]* *[A-Za-z] " "" symbol "${line}")
    kivlut_undeclared_names("${symbol}" undeclared)
    if(undeclared STREQUAL "skipped")
      math(EXPR skipped "${skipped} + 1")
      continue()
    endif()
    math(EXPR checked "${checked} + 1")
    if(undeclared)
      list(APPEND undeclared_names ${undeclared})
      string(REPLACE ";" ", " undeclared "${undeclared}")
      string(APPEND offending "\n  ${library_name}: ${symbol}\n      not declared: ${undeclared}")
      math(EXPR offending_count "${offending_count} + 1")
    endif()
  endforeach()
endforeach()

list(LENGTH libraries library_count)
if(offending)
  list(REMOVE_DUPLICATES undeclared_names)
  list(SORT undeclared_names)
  list(LENGTH undeclared_names name_count)
  string(REPLACE ";" "\n  " undeclared_names "${undeclared_names}")
  message(FATAL_ERROR "${offending_count} of ${checked} KIVMV symbols exported by the "
          "${library_count} installed libraries are not declared by the installed headers.\n"
          "The ${name_count} undeclared names:\n  ${undeclared_names}\n"
          "The symbols:${offending}")
endif()
if(checked EQUAL 0)
  message(FATAL_ERROR "no KIVMV symbol was checked in ${libraries}")
endif()
message(STATUS "${checked} KIVMV symbols of ${library_count} libraries are declared by the "
        "installed headers (${skipped} std:: or cv:: instantiations skipped)")
