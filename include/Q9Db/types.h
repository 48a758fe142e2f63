/* Types every other part of the interface builds on: the export macro,
 * the status type and codes, the opaque handles, node type codes, byte
 * orders, cluster types and flags.
 * Included by Q9Db.h; compiles on its own. */
#ifndef Q9DB_TYPES_H
#define Q9DB_TYPES_H

#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <uchar.h>
#endif

#if defined(_WIN32)
#  if defined(Q9DB_BUILDING)
#    define Q9DB_API __declspec(dllexport)
#  else
#    define Q9DB_API __declspec(dllimport)
#  endif
#elif defined(Q9DB_BUILDING)
#  define Q9DB_API __attribute__((visibility("default")))
#else
#  define Q9DB_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Status codes ------------------------------------------------------ */

#if defined(_WIN32)
#  include <winerror.h>
#else
typedef int32_t HRESULT;
#  ifndef S_OK
#    define S_OK           ((HRESULT)0)
#    define S_FALSE        ((HRESULT)1)
#    define E_INVALIDARG   ((HRESULT)0x80070057u)
#    define E_OUTOFMEMORY  ((HRESULT)0x8007000Eu)
#    define E_FAIL         ((HRESULT)0x80004005u)
#    define E_POINTER      ((HRESULT)0x80004003u)
#    define E_UNEXPECTED   ((HRESULT)0x8000FFFFu)
#    define E_NOTIMPL      ((HRESULT)0x80004001u)
#  endif
#  ifndef SUCCEEDED
#    define SUCCEEDED(hr)  (((HRESULT)(hr)) >= 0)
#    define FAILED(hr)     (((HRESULT)(hr)) < 0)
#  endif
#endif

/* End of a decode walk: the status form of ERROR_NOT_FOUND. */
#define Q9_E_NOT_FOUND ((HRESULT)0x80070490u)

/* ---- Handles ----------------------------------------------------------- */

/* Any node of a database, the database handle included. */
typedef struct Q9DbNode Q9DbNode;
/* A multi-language text of a database. */
typedef struct Q9DbStringSlot Q9DbStringSlot;

/* ---- Node type codes (two-letter codes as returned by Q9Db_getNodeType) - */

#define Q9_NODETYPE_ElementReference              0x7265u
#define Q9_NODETYPE_Q9Db                          0x6264u
#define Q9_NODETYPE_ElementGroup                  0x6765u
#define Q9_NODETYPE_DatabaseCollections           0x6364u
#define Q9_NODETYPE_Cluster                       0x6C63u
#define Q9_NODETYPE_AbsolutelyScheduledTriggering 0x7361u
#define Q9_NODETYPE_IdentifierBasedTriggering     0x6269u
#define Q9_NODETYPE_MaskedIdentifierTriggering    0x696Du
#define Q9_NODETYPE_PDUTriggering                 0x7470u
#define Q9_NODETYPE_SignalInstance                0x6973u
#define Q9_NODETYPE_Signal                        0x6773u
#define Q9_NODETYPE_Coding                        0x6763u
#define Q9_NODETYPE_PDUInstance                   0x6970u
#define Q9_NODETYPE_MultiplexedPart               0x7478u
#define Q9_NODETYPE_Channel                       0x6863u
#define Q9_NODETYPE_Frame                         0x7266u
#define Q9_NODETYPE_UnitSpec                      0x6E75u
#define Q9_NODETYPE_IdentityComputation           0x6369u
#define Q9_NODETYPE_LinearComputation             0x636Cu
#define Q9_NODETYPE_MappedTextComputation         0x746Du
#define Q9_NODETYPE_MappedValueComputation        0x766Du
#define Q9_NODETYPE_SignalPDU                     0x7370u
#define Q9_NODETYPE_MultiplexedPDU                0x7578u
#define Q9_NODETYPE_EventControlledTiming         0x7465u
#define Q9_NODETYPE_CyclicTiming                  0x7463u
#define Q9_NODETYPE_Segment                       0x7473u
#define Q9_NODETYPE_ValueRange                    0x7276u
#define Q9_NODETYPE_InvalidNode                   0xFFFFu

/* ---- Byte orders, cluster types, flags ---------------------------------- */

#define Q9_BYTEORDER_LITTLEENDIAN 0
#define Q9_BYTEORDER_BIGENDIAN    1

#define Q9_CLUSTERTYPE_INVALID 0
#define Q9_CLUSTERTYPE_CAN     1
#define Q9_CLUSTERTYPE_FLEXRAY 2
#define Q9_CLUSTERTYPE_LIN     3
#define Q9_CLUSTERTYPE_MAX     3

#define Q9_FLAG_LOWERLIMIT_CLOSED   0x00000001u
#define Q9_FLAG_UPPERLIMIT_CLOSED   0x00000002u
#define Q9_FLAG_INTERNALVALUES      0x40000000u
#define Q9_FLAG_SIGNALDEFAULT       0x40000003u
#define Q9_FLAG_VALID               0x80000000u
#define Q9_FLAG_CONSTRAINT_VALID    0x80000000u
#define Q9_FLAGMASK_CAN_FRAMETYPE   0x00000003u
#define Q9_FLAG_CANSTANDARD         0u
#define Q9_FLAG_CANEXTENDED         1u
#define Q9_FLAG_CANSTD_OR_EXT       2u
#define Q9_FLAG_CANFD_FRAME         0x00000004u
#define Q9_FLAG_CANFD_FASTDATA      0x00000008u
#define Q9_FLAG_CANFD_ERRORSTATEIND 0x00000010u
#define Q9_FLAG_LIN_ENH_CHECKSUM    0x00000020u

#ifdef __cplusplus
}
#endif

#endif /* Q9DB_TYPES_H */
