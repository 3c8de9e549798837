#pragma once

// AIBinder: a binder object, either local (created here with AIBinder_new) or a proxy for an
// object of another process.

#include <stdbool.h>
#include <stdint.h>
#include <sys/types.h>

#include <android/binder_parcel.h>
#include <android/binder_status.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t transaction_code_t;
typedef uint32_t binder_flags_t;

// User transaction codes lie in FIRST_CALL_TRANSACTION..LAST_CALL_TRANSACTION.
enum {
    FIRST_CALL_TRANSACTION = 0x00000001,
    LAST_CALL_TRANSACTION = 0x00ffffff,
};

enum {
    // The caller does not wait: no reply, calls to one object are delivered in order.
    FLAG_ONEWAY = 0x01,
    // Accepted for compatibility; the emulation zeroes nothing.
    FLAG_CLEAR_BUF = 0x20,
    FLAG_PRIVATE_VENDOR = 0x10000000,
};

typedef struct AIBinder_Class AIBinder_Class;
typedef struct AIBinder_Weak AIBinder_Weak;
typedef struct AIBinder_DeathRecipient AIBinder_DeathRecipient;

// Returns the user data of a new local binder (the `args` of AIBinder_new go in).
typedef void* (*AIBinder_Class_onCreate)(void* args);
// Called once, when the last strong reference to a local binder goes.
typedef void (*AIBinder_Class_onDestroy)(void* userData);
// Runs a transaction on a local binder. `in` is positioned after the interface token.
typedef binder_status_t (*AIBinder_Class_onTransact)(AIBinder* binder, transaction_code_t code,
                                                     const AParcel* in, AParcel* out);
typedef binder_status_t (*AIBinder_onDump)(AIBinder* binder, int fd, const char** args,
                                           uint32_t numArgs);

// Defines a class; the descriptor is copied. The class lives for the rest of the program.
AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor,
                                      AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy,
                                      AIBinder_Class_onTransact onTransact);
void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump);
// Transactions of this class then carry no interface token.
void AIBinder_Class_disableInterfaceTokenHeader(AIBinder_Class* clazz);
const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz);

// A new local binder of the calling thread's process, with one strong reference.
AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args);

bool AIBinder_isRemote(const AIBinder* binder);
bool AIBinder_isAlive(const AIBinder* binder);
binder_status_t AIBinder_ping(AIBinder* binder);
binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs);

// Death notification. Linking a local binder gives STATUS_INVALID_OPERATION, a dead one
// STATUS_DEAD_OBJECT, null arguments STATUS_UNEXPECTED_NULL.
binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie);
binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie);

// Identity of the process that sent the transaction being handled on this thread (the calling
// process itself outside a transaction).
uid_t AIBinder_getCallingUid(void);
pid_t AIBinder_getCallingPid(void);
bool AIBinder_isHandlingTransaction(void);

// Null is ignored.
void AIBinder_incStrong(AIBinder* binder);
void AIBinder_decStrong(AIBinder* binder);
// The number of strong references held through this handle; -1 for null.
int32_t AIBinder_debugGetRefCount(AIBinder* binder);

// Gives `binder` its class: true when it already has exactly this class, or when it is a proxy
// without one whose remote object has the class's descriptor. Another class object with the same
// descriptor is refused, as on a device (a binder belongs to one copy of the stubs per process).
bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz);
const AIBinder_Class* AIBinder_getClass(AIBinder* binder);
// The onCreate result of a local binder; null for a proxy.
void* AIBinder_getUserData(AIBinder* binder);

// Creates the request parcel of a transaction on `binder` and writes the interface token.
binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in);
// Sends *in (always consumed: *in is null afterwards) and, unless FLAG_ONEWAY, waits for the
// reply, which goes to *out (owned by the caller).
binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out, binder_flags_t flags);

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder);
void AIBinder_Weak_delete(AIBinder_Weak* weakBinder);
// One strong reference, or null when the object is gone.
AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder);
AIBinder_Weak* AIBinder_Weak_clone(const AIBinder_Weak* weak);
bool AIBinder_lt(const AIBinder* lhs, const AIBinder* rhs);
bool AIBinder_Weak_lt(const AIBinder_Weak* lhs, const AIBinder_Weak* rhs);

typedef void (*AIBinder_DeathRecipient_onBinderDied)(void* cookie);
typedef void (*AIBinder_DeathRecipient_onBinderUnlinked)(void* cookie);

// Null when onBinderDied is null.
AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
        AIBinder_DeathRecipient_onBinderDied onBinderDied);
// Called after a link is gone, by death or by unlinking.
void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked);
// Unlinks the recipient from every binder and frees it.
void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient);

binder_status_t AIBinder_setExtension(AIBinder* binder, AIBinder* ext);
binder_status_t AIBinder_getExtension(AIBinder* binder, AIBinder** outExt);

#ifdef __cplusplus
}  // extern "C"
#endif
