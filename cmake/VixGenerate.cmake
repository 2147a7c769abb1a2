# vix_generate(<schema.vix> <out_dir> <sources_var> [METALIB_ONLY])
# Runs vixgen over a schema at build time; <sources_var> receives the generated sources: the
# record classes' .cc (the .h and _testsupport.h land beside it in <out_dir>) and, when the
# schema has a metalib statement, <schema>_metalib.cc, the metadata library as a linked-in
# array (<schema>.metalib, the library file, lands beside it).
# METALIB_ONLY: only the metadata library (a library that does not link the codec runtime).
# The vixgen target is named, not required to exist yet: a library added before
# vix_cpp_comm may generate its sources too.
function(vix_generate schema out_dir sources_var)
  cmake_parse_arguments(A "METALIB_ONLY" "" "" ${ARGN})
  get_filename_component(name ${schema} NAME_WE)
  file(STRINGS ${schema} decl REGEX "^[ \t]*schema[ \t]+[A-Za-z_0-9]+")
  if(decl)
    string(REGEX REPLACE "^[ \t]*schema[ \t]+([A-Za-z_0-9]+).*" "\\1" name "${decl}")
  endif()
  set(outputs ${out_dir}/${name}.h ${out_dir}/${name}.cc ${out_dir}/${name}_testsupport.h)
  set(sources ${out_dir}/${name}.cc)
  set(flags)
  if(A_METALIB_ONLY)
    set(outputs)
    set(sources)
    set(flags --metalib-only)
  endif()
  file(STRINGS ${schema} lib REGEX "^[ \t]*metalib[ \t]")
  if(lib)
    list(APPEND outputs ${out_dir}/${name}.metalib ${out_dir}/${name}_metalib.cc)
    list(APPEND sources ${out_dir}/${name}_metalib.cc)
  endif()
  file(MAKE_DIRECTORY ${out_dir})
  add_custom_command(
    OUTPUT ${outputs}
    COMMAND vixgen ${flags} ${schema} ${out_dir}
    DEPENDS vixgen ${schema}
    COMMENT "vixgen ${name}"
    VERBATIM)
  set(${sources_var} ${sources} PARENT_SCOPE)
endfunction()
