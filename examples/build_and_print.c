/* Builds a small database through the C interface and prints what it holds. */
#include <stdio.h>

#include "Q9Db.h"

/* Prints wide text as UTF-8 (enough for the texts of this example). */
static void printText(const char16_t *text) {
  if (!text) {
    fputs("(none)", stdout);
    return;
  }
  for (; *text; ++text) {
    unsigned c = *text;
    if (c < 0x80) {
      putchar((int)c);
    } else if (c < 0x800) {
      putchar((int)(0xC0 | (c >> 6)));
      putchar((int)(0x80 | (c & 0x3F)));
    } else {
      putchar((int)(0xE0 | (c >> 12)));
      putchar((int)(0x80 | ((c >> 6) & 0x3F)));
      putchar((int)(0x80 | (c & 0x3F)));
    }
  }
}

int main(void) {
  static const char16_t *const groups[] = {u"@clusters", u"@ECUs",    u"@PDUs", u"@frames",
                                           u"@signals",  u"@codings", u"@views"};
  static const struct {
    uint16_t language;
    const char *name;
  } languages[] = {{0x07, "de"}, {0x09, "en"}, {0x0C, "fr"}, {0x11, "ja"}};
  Q9DbNode *db = NULL;
  Q9DbStringSlot *slot = NULL;
  size_t i;

  if (Q9Db_create(u"demo network", &db) != S_OK) {
    fputs("cannot create the database\n", stderr);
    return 1;
  }
  fputs("database: ", stdout);
  {
    const char16_t *id = NULL;
    Q9Db_getElementId(db, &id);
    printText(id);
  }
  putchar('\n');

  for (i = 0; i < sizeof groups / sizeof groups[0]; ++i) {
    Q9DbNode *group = NULL;
    Q9DbNode *owner = NULL;
    if (Q9Db_findByElementId(db, groups[i], &group) != S_OK) continue;
    Q9Db_getGroup(group, &owner);
    fputs("  group ", stdout);
    printText(groups[i]);
    printf(" (type 0x%04X, held by type 0x%04X)\n", (unsigned)Q9Db_getNodeType(group),
           (unsigned)Q9Db_getNodeType(owner));
  }

  Q9Db_stringCreateSlot(db, 0x07, u"Motordrehzahl", &slot);
  Q9Db_stringAddAlternative(db, slot, 0x09, u"engine speed");
  Q9Db_stringAddAlternative(db, slot, 0x0C, u"r\u00e9gime moteur");
  puts("text slot, looked up per language (fallback: en):");
  for (i = 0; i < sizeof languages / sizeof languages[0]; ++i) {
    const char16_t *text = NULL;
    HRESULT hr = Q9Db_stringLookup(db, slot, languages[i].language, 0x09, &text);
    printf("  %s: ", languages[i].name);
    printText(text);
    printf("%s\n", hr == S_OK ? "" : " (not found)");
  }

  Q9Db_destroy(db);
  return 0;
}
