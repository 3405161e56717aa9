// The part of Evernote's EDAM API (UserStore and NoteStore) that the Evernote session and
// sign-in use, with the field ids, types and throws lists of the service's public IDL; fields
// and methods left out are skipped on read, so it works with the whole service. Compiled by
// thrift --gen cpp into the library's private sources at build time.
namespace cpp evernote.edam
typedef string Guid
typedef i64    Timestamp   // ms since epoch, UTC
typedef i32    UserID
const i16 EDAM_VERSION_MAJOR = 1
const i16 EDAM_VERSION_MINOR = 28

enum EDAMErrorCode { UNKNOWN = 1, BAD_DATA_FORMAT = 2, PERMISSION_DENIED = 3, INTERNAL_ERROR = 4,
  DATA_REQUIRED = 5, LIMIT_REACHED = 6, QUOTA_REACHED = 7, INVALID_AUTH = 8, AUTH_EXPIRED = 9,
  DATA_CONFLICT = 10, ENML_VALIDATION = 11, SHARD_UNAVAILABLE = 12, LEN_TOO_SHORT = 13,
  LEN_TOO_LONG = 14, TOO_FEW = 15, TOO_MANY = 16, UNSUPPORTED_OPERATION = 17, TAKEN_DOWN = 18,
  RATE_LIMIT_REACHED = 19, BUSINESS_SECURITY_LOGIN_REQUIRED = 20, DEVICE_LIMIT_REACHED = 21,
  OPENID_ALREADY_TAKEN = 22, INVALID_OPENID_TOKEN = 23, USER_NOT_ASSOCIATED = 24,
  USER_NOT_REGISTERED = 25, USER_ALREADY_ASSOCIATED = 26, ACCOUNT_CLEAR = 27,
  SSO_AUTHENTICATION_REQUIRED = 28 }
enum NoteSortOrder { CREATED = 1, UPDATED = 2, RELEVANCE = 3, UPDATE_SEQUENCE_NUMBER = 4, TITLE = 5 }
enum PrivilegeLevel { NORMAL = 1, PREMIUM = 3, VIP = 5, MANAGER = 7, SUPPORT = 8, ADMIN = 9 }
enum ServiceLevel { BASIC = 1, PLUS = 2, PREMIUM = 3, BUSINESS = 4 }

exception EDAMUserException   { 1: required EDAMErrorCode errorCode, 2: optional string parameter }
exception EDAMSystemException { 1: required EDAMErrorCode errorCode, 2: optional string message,
                                3: optional i32 rateLimitDuration }
exception EDAMNotFoundException { 1: optional string identifier, 2: optional string key }

struct Data { 1: optional binary bodyHash, 2: optional i32 size, 3: optional binary body }
struct ResourceAttributes {
  1: optional string sourceURL,   2: optional Timestamp timestamp,  3: optional double latitude,
  4: optional double longitude,   5: optional double altitude,      6: optional string cameraMake,
  7: optional string cameraModel, 8: optional bool clientWillIndex, 9: optional string recoType,
 10: optional string fileName,   11: optional bool attachment }
struct Resource {
  1: optional Guid guid,    2: optional Guid noteGuid, 3: optional Data data, 4: optional string mime,
  5: optional i16 width,    6: optional i16 height,    7: optional i16 duration, 8: optional bool active,
  9: optional Data recognition, 11: optional ResourceAttributes attributes,
 12: optional i32 updateSequenceNum, 13: optional Data alternateData }
struct NoteAttributes {   // subset; full struct has ids 1, 10-24, 26-31
  1: optional Timestamp subjectDate, 13: optional string author, 14: optional string source,
 15: optional string sourceURL, 16: optional string sourceApplication, 22: optional string contentClass }
struct Note {
  1: optional Guid guid,          2: optional string title,       3: optional string content,
  4: optional binary contentHash, 5: optional i32 contentLength,  6: optional Timestamp created,
  7: optional Timestamp updated,  8: optional Timestamp deleted,  9: optional bool active,
 10: optional i32 updateSequenceNum, 11: optional string notebookGuid, 12: optional list<Guid> tagGuids,
 13: optional list<Resource> resources, 14: optional NoteAttributes attributes,
 15: optional list<string> tagNames }
struct Notebook {
  1: optional Guid guid, 2: optional string name, 5: optional i32 updateSequenceNum,
  6: optional bool defaultNotebook, 7: optional Timestamp serviceCreated,
  8: optional Timestamp serviceUpdated, 11: optional bool published, 12: optional string stack }
struct User {
  1: optional UserID id, 2: optional string username, 3: optional string email, 4: optional string name,
  6: optional string timezone, 7: optional PrivilegeLevel privilege, 21: optional ServiceLevel serviceLevel,
  9: optional Timestamp created, 10: optional Timestamp updated, 11: optional Timestamp deleted,
 13: optional bool active, 14: optional string shardId, 19: optional string photoUrl,
 20: optional Timestamp photoLastUpdated }
struct UserUrls { 1: optional string noteStoreUrl, 2: optional string webApiUrlPrefix,
  3: optional string userStoreUrl, 4: optional string utilityUrl, 5: optional string messageStoreUrl,
  6: optional string userWebSocketUrl }
struct NoteFilter {
  1: optional i32 order, 2: optional bool ascending, 3: optional string words,
  4: optional Guid notebookGuid, 5: optional list<Guid> tagGuids, 6: optional string timeZone,
  7: optional bool inactive, 8: optional string emphasized, 9: optional bool includeAllReadableNotebooks,
 10: optional string context, 11: optional string rawWords, 12: optional binary searchContextBytes,
 15: optional bool includeAllReadableWorkspaces }
struct NoteList {
  1: required i32 startIndex, 2: required i32 totalNotes, 3: required list<Note> notes,
  4: optional list<string> stoppedWords, 5: optional list<string> searchedWords,
  6: optional i32 updateCount, 7: optional binary searchContextBytes, 8: optional string debugInfo }
struct NoteMetadata {
  1: required Guid guid, 2: optional string title, 5: optional i32 contentLength,
  6: optional Timestamp created, 7: optional Timestamp updated, 8: optional Timestamp deleted,
 10: optional i32 updateSequenceNum, 11: optional string notebookGuid, 12: optional list<Guid> tagGuids,
 14: optional NoteAttributes attributes, 20: optional string largestResourceMime,
 21: optional i32 largestResourceSize }
struct NotesMetadataList {
  1: required i32 startIndex, 2: required i32 totalNotes, 3: required list<NoteMetadata> notes,
  4: optional list<string> stoppedWords, 5: optional list<string> searchedWords,
  6: optional i32 updateCount, 7: optional binary searchContextBytes, 9: optional string debugInfo }
struct NotesMetadataResultSpec {
  2: optional bool includeTitle, 5: optional bool includeContentLength, 6: optional bool includeCreated,
  7: optional bool includeUpdated, 8: optional bool includeDeleted, 10: optional bool includeUpdateSequenceNum,
 11: optional bool includeNotebookGuid, 12: optional bool includeTagGuids, 14: optional bool includeAttributes,
 20: optional bool includeLargestResourceMime, 21: optional bool includeLargestResourceSize }

service UserStore {
  bool checkVersion(1: string clientName, 2: i16 edamVersionMajor = EDAM_VERSION_MAJOR,
                    3: i16 edamVersionMinor = EDAM_VERSION_MINOR),
  User getUser(1: string authenticationToken)
    throws (1: EDAMUserException userException, 2: EDAMSystemException systemException),
  UserUrls getUserUrls(1: string authenticationToken)              // 1.28+
    throws (1: EDAMUserException userException, 2: EDAMSystemException systemException),
  string getNoteStoreUrl(1: string authenticationToken)            // legacy, <= 1.25
    throws (1: EDAMUserException userException, 2: EDAMSystemException systemException)
}
service NoteStore {
  list<Notebook> listNotebooks(1: string authenticationToken)
    throws (1: EDAMUserException userException, 2: EDAMSystemException systemException),
  Notebook getNotebook(1: string authenticationToken, 2: Guid guid)
    throws (1: EDAMUserException userException, 2: EDAMSystemException systemException,
            3: EDAMNotFoundException notFoundException),
  Notebook getDefaultNotebook(1: string authenticationToken)
    throws (1: EDAMUserException userException, 2: EDAMSystemException systemException),
  Notebook createNotebook(1: string authenticationToken, 2: Notebook notebook)
    throws (1: EDAMUserException userException, 2: EDAMSystemException systemException,
            3: EDAMNotFoundException notFoundException),
  NoteList findNotes(1: string authenticationToken, 2: NoteFilter filter,   // legacy, <= 1.25
                     3: i32 offset, 4: i32 maxNotes)
    throws (1: EDAMUserException userException, 2: EDAMSystemException systemException,
            3: EDAMNotFoundException notFoundException),
  NotesMetadataList findNotesMetadata(1: string authenticationToken, 2: NoteFilter filter,
      3: i32 offset, 4: i32 maxNotes, 5: NotesMetadataResultSpec resultSpec)
    throws (1: EDAMUserException userException, 2: EDAMSystemException systemException,
            3: EDAMNotFoundException notFoundException),
  Note getNote(1: string authenticationToken, 2: Guid guid, 3: bool withContent,
               4: bool withResourcesData, 5: bool withResourcesRecognition,
               6: bool withResourcesAlternateData)
    throws (1: EDAMUserException userException, 2: EDAMSystemException systemException,
            3: EDAMNotFoundException notFoundException),
  Note createNote(1: string authenticationToken, 2: Note note)
    throws (1: EDAMUserException userException, 2: EDAMSystemException systemException,
            3: EDAMNotFoundException notFoundException),
  Note updateNote(1: string authenticationToken, 2: Note note)
    throws (1: EDAMUserException userException, 2: EDAMSystemException systemException,
            3: EDAMNotFoundException notFoundException)
}
