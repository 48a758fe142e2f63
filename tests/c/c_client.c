/* A C11 client that knows only the public header. */
#include <stdio.h>
#include <string.h>

#include "Q9Db.h"

static int failures = 0;
static int checks = 0;

#define CHECK(cond)                                                   \
  do {                                                                \
    ++checks;                                                         \
    if (!(cond)) {                                                    \
      ++failures;                                                     \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
    }                                                                 \
  } while (0)

static int sameText(const char16_t *a, const char16_t *b) {
  if (!a || !b) return a == b;
  while (*a && *a == *b) ++a, ++b;
  return *a == *b;
}

int main(void) {
  Q9DbNode *db = NULL;
  Q9DbNode *found = NULL;
  Q9DbNode *collections = NULL;
  Q9DbStringSlot *slot = NULL;
  const char16_t *text = NULL;
  const char16_t *again = NULL;

  CHECK(Q9Db_create(u"network", &db) == S_OK);
  CHECK(Q9Db_getNodeType(db) == Q9_NODETYPE_Q9Db);
  CHECK(Q9Db_isDerivedFrom(db, Q9_NODETYPE_ElementReference) == 1);
  CHECK(Q9Db_findByElementId(db, u"network", &found) == S_OK && found == db);
  CHECK(Q9Db_findByElementId(db, u"@frames", &found) == S_OK &&
        Q9Db_getNodeType(found) == Q9_NODETYPE_ElementGroup);
  CHECK(Q9Db_getDatabaseCollections(db, &collections) == S_OK &&
        Q9Db_getNodeType(collections) == Q9_NODETYPE_DatabaseCollections);

  /* Slots in three languages, looked up with and without fallback. */
  CHECK(Q9Db_stringCreateSlotA(db, 7, "Motordrehzahl", &slot) == S_OK);
  CHECK(Q9Db_stringAddAlternative(db, slot, 9, u"engine speed") == S_OK);
  CHECK(Q9Db_stringAddAlternativeA(db, slot, 12, "r\xc3\xa9gime") == S_OK);
  CHECK(Q9Db_stringLookup(db, slot, 9, 65535, &text) == S_OK && sameText(text, u"engine speed"));
  text = NULL;
  CHECK(Q9Db_stringLookup(db, slot, 3, 9, &text) == S_OK && sameText(text, u"engine speed"));
  text = NULL;
  CHECK(Q9Db_stringLookup(db, slot, 3, 65535, &text) == S_OK && sameText(text, u"Motordrehzahl"));
  /* Interned: the same text comes back as the same pointer. */
  again = NULL;
  CHECK(Q9Db_stringLookup(db, slot, 7, 65535, &again) == S_OK && again == text);
  text = NULL;
  CHECK(Q9Db_stringLookup(db, NULL, 7, 65535, &text) == S_FALSE && text == NULL);

  CHECK(Q9Db_destroy(db) == S_OK);
  CHECK(Q9Db_destroy(NULL) == E_INVALIDARG);

  printf("%d passed, %d failed\n", checks - failures, failures);
  return failures ? 1 : 0;
}
