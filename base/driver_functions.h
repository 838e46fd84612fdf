// The driver's own functions that are exported beside the host interface but not declared in the
// public header. Their names and argument types are part of the library's fixed export list
// (driver/exported_symbols.txt); each works on PLC_driver as the host interface does.
#ifndef KORVAN_BASE_DRIVER_FUNCTIONS_H
#define KORVAN_BASE_DRIVER_FUNCTIONS_H

#include <QtCore/QByteArray>
#include <QtCore/QList>

#include "korvan_qa_qb_series_port.h"

// Copies fields ownerId..extra of `from` into `to` and empties the payload of `to`.
KORVAN_API void passRetValue(const RW_VAR& from, RW_VAR& to);

// Read planning. WhetherGroup appends `var` to `out` cut into pieces of at most `max` units,
// counted from `total` rather than from var's own count; when `total` fits one piece, `var` is
// appended untouched, otherwise left holding the last piece. Bubble_Sort sorts by ascending
// address, keeping the order of equal addresses. BitVarReCreat appends the block reads of one
// sorted bucket (one station, one area) to readList; the caller holds listMutex. A `max` below 1
// counts as 1.
KORVAN_API void WhetherGroup(int total, int max, RW_VAR* var, QList<RW_VAR>* out);
KORVAN_API void Bubble_Sort(QList<RW_VAR>* list);
KORVAN_API void BitVarReCreat(QList<RW_VAR>* list, int max);

// Judges a reply against the head of requestQueue: 0 invalid (or nothing queued), 1 valid with
// data to store, 2 valid with nothing to store.
KORVAN_API int CheckGetData(const QByteArray* reply);

// Each starts an exchange: queues its frames on requestQueue and sets the port record's counters.
// read_register queues the local read of a normalised variable; write_analog one frame writing a
// run of bits or words; write_analog_bit the word read and word write that change one bit of a
// word of area 14; Remote_ReadVar the remote read. write_register queues write_analog_bit's
// frames for area 29 and write_analog's otherwise, and mirrors the record into the register image
// unless commFailed is set; Remote_WriteVar queues the remote write and mirrors it always.
KORVAN_API void read_register(const RW_VAR& var);
KORVAN_API void write_analog(const RW_VAR& var);
KORVAN_API void write_analog_bit(const RW_VAR& var);
KORVAN_API void write_register(const RW_VAR& var);
KORVAN_API void Remote_ReadVar(const RW_VAR& var);
KORVAN_API void Remote_WriteVar(const RW_VAR& var);

// Judge the reply for the head of requestQueue, store what it carries, and return a result code.
// A null reply counts as nothing received; a length beyond the bytes the reply holds, or below
// 0, as a wrong length.
KORVAN_API int DealDataOfLocalArea(QByteArray* reply, int length);
KORVAN_API int DealDataOfRemoteArea(QByteArray* reply, int length);

// Result code of a verdict kind; failures are offset by the head request's ownerId.
KORVAN_API int GetDriverReturnValue(int kind);
KORVAN_API int SwitchErrorReturn(int base);

// Stores the data of a validated read reply to the head of requestQueue into registerCache; the
// caller holds cacheMutex. The reply to the word read of a bit-of-word write instead completes
// the queued write frame (SpecialRegisterSave) and stores nothing.
KORVAN_API void SaveToLocalDataErea(QByteArray* reply);
KORVAN_API void SpecialRegisterSave(const QByteArray* reply);

// Writes a write record's value into registerCache under cacheMutex, without waiting for the
// PLC. Bit writes change only their own bits; words never read before start from 0.
KORVAN_API void write_data_to_local(const RW_VAR& record);

#endif
