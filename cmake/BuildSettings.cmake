# What every target of the project is built with, declared once. Each of the project's own targets links
# velmora_build_settings privately: the language standard and the warnings (errors unless VELMORA_WERROR is
# off). Targets from elsewhere (GoogleTest, Boost's headers) do not, so their warnings are not ours.
add_library(velmora_build_settings INTERFACE)
target_compile_features(velmora_build_settings INTERFACE cxx_std_17)
target_compile_options(velmora_build_settings INTERFACE -Wall -Wextra $<$<BOOL:${VELMORA_WERROR}>:-Werror>)

# For code that ends up in a shared object exporting only what it marks: position-independent, and every
# symbol hidden unless its declaration says otherwise (inline functions too).
function(velmora_hide_symbols target)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden
                                               VISIBILITY_INLINES_HIDDEN ON)
endfunction()
