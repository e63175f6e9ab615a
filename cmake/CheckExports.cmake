# Fails unless the library exports exactly what the browser and the owner call, plus the type
# information of the classes that cross the library boundary.
# Usage: cmake -DNM=<nm> -DLIBRARY=<libvelmora.so> -P CheckExports.cmake
execute_process(COMMAND "${NM}" -D --defined-only -C "${LIBRARY}" OUTPUT_VARIABLE listing RESULT_VARIABLE failed)
if(failed)
    message(FATAL_ERROR "${NM} failed on ${LIBRARY}")
endif()
string(REPLACE "\n" ";" lines "${listing}")
set(required UVA_RequestBackend UVA_ReleaseBackend UVADRM_RequestBackend UVADRM_ReleaseBackend
    UVADRM_GetSupportedBackendIDs "Velmora::SetCallbacks(Velmora::Callbacks const&)"
    # A media stack built as its own library derives from the interfaces and catches the exceptions.
    "typeinfo for Velmora::IMediaBackend" "typeinfo for Velmora::ExceptionBase"
    "vtable for Velmora::GenericErrorException" "typeinfo for Velmora::BackendEvent"
    "Velmora::Wrapper::IntegrationLayer::IntegrationLayer(Velmora::IUva*)"
    # The owner's switch for the session trace (Velmora/Trace.h).
    "Velmora::Trace::StopTrace()")
set(unexpected "")
foreach(line IN LISTS lines)
    if(NOT line MATCHES "^[0-9a-fA-F]+ [A-Za-z] (.+)$")
        continue()
    endif()
    set(symbol "${CMAKE_MATCH_1}")
    list(REMOVE_ITEM required "${symbol}")
    if(symbol MATCHES "^(UVA_RequestBackend|UVA_ReleaseBackend|UVADRM_RequestBackend|UVADRM_ReleaseBackend|UVADRM_GetSupportedBackendIDs)$")
        continue()
    endif()
    # Linker-defined section markers.
    if(symbol MATCHES "^_(_bss_start|_bss_start__|_bss_end__|bss_end__|_end__|edata|end|init|fini)$")
        continue()
    endif()
    string(REGEX REPLACE "^(typeinfo name for |typeinfo for |vtable for |VTT for |non-virtual thunk to |virtual thunk to )" "" entity "${symbol}")
    if(entity MATCHES "^Velmora::Wrapper::" AND NOT entity MATCHES "^Velmora::Wrapper::IntegrationLayer")
        list(APPEND unexpected "${symbol}")
    elseif(NOT entity MATCHES "^Velmora::")
        list(APPEND unexpected "${symbol}")
    endif()
endforeach()
if(required)
    message(FATAL_ERROR "not exported: ${required}")
endif()
if(unexpected)
    string(REPLACE ";" "\n  " unexpected "${unexpected}")
    message(FATAL_ERROR "exported but internal:\n  ${unexpected}")
endif()
message(STATUS "exported symbols are as intended")
