// Copyright (c) 2026, the morvena_sn authors.
// SPDX-License-Identifier: GPL-2.0-only

// States of the donor's read view that last only for a moment.

#include "donor_test.h"
#include "purge.h"

#include "host.h"
#include "host/innodb.h"
#include "host/read_view.h"

#include "ha_innodb.h"
#include "trx0trx.h"

namespace {

using namespace harness;

template <class Tag, auto Pointer>
struct Expose {
  friend constexpr auto member(Tag) { return Pointer; }
};
struct View_closed {
  friend constexpr auto member(View_closed);
};
template struct Expose<View_closed, &ReadView::m_closed>;

trx_t *transaction_of(uint32_t id) {
  Find_thd_with_id finder = host::find_by_id(id);
  THD_ptr thd = Global_THD_manager::get_instance()->find_thd(&finder);
  return thd ? thd_to_trx(thd.get()) : nullptr;
}

/** When a read view is closed, it keeps its content, and the pointer to it gets
    a mark. A statement that may reuse the view removes the mark and opens the
    view before it checks whether the content is current. An object of this
    class holds the view in that state. The session must be idle while the
    object lives. */
class Reopened_view {
 public:
  explicit Reopened_view(trx_t *trx) : trx_(trx), marked_(trx->read_view) {
    const auto bits = reinterpret_cast<uintptr_t>(marked_);
    EXPECT_EQ(bits & 1, 1u) << "no closed view";
    view_ = reinterpret_cast<ReadView *>(bits & ~uintptr_t{1});
    view_->*member(View_closed{}) = false;
    trx_->read_view = view_;
  }
  ~Reopened_view() {
    trx_->read_view = marked_;
    view_->*member(View_closed{}) = true;
  }
  Reopened_view(const Reopened_view &) = delete;
  Reopened_view &operator=(const Reopened_view &) = delete;
  const ReadView *get() const { return view_; }

 private:
  trx_t *const trx_;
  ReadView *const marked_;
  ReadView *view_;
};

class DonorsView : public Donor_test {
 protected:
  /** Begin a transaction of the donor that opens no read view. The transaction
      still has the closed view of the autocommitted statement before it. */
  trx_t *begin_without_a_view() {
    donor.exec("BEGIN");
    donor.query("SELECT * FROM untouched FOR SHARE");
    return transaction_of(donor.id());
  }

  DonorsView() { sql.exec("CREATE TABLE untouched (id INT PRIMARY KEY)"); }

  Purge purge{&sql};
};

TEST_F(DonorsView, ThatPurgeHasPassedIsNotRead) {
  EXPECT_EQ(as_ints(donor.query("SELECT v FROM t ORDER BY id")), before);
  change();
  ASSERT_TRUE(purge.has_run(5));
  trx_t *trx = begin_without_a_view();
  ASSERT_NE(trx, nullptr);
  const Reopened_view view(trx);
  ASSERT_TRUE(host::purge_has_passed(view.get()));
  EXPECT_EQ(read(donor.id()), after);
  EXPECT_EQ(read(donor.id(), "by_v"), after);
}

// Nothing was committed since the view was made, so it shows the same rows as a
// fresh one.
TEST_F(DonorsView, ThatIsCurrentIsRead) {
  change();
  EXPECT_EQ(as_ints(donor.query("SELECT v FROM t ORDER BY id")), after);
  trx_t *trx = begin_without_a_view();
  ASSERT_NE(trx, nullptr);
  const Reopened_view view(trx);
  ASSERT_FALSE(host::purge_has_passed(view.get()));
  Cursor cursor({.donor = donor.id()});
  sql.exec("UPDATE t SET v = 99");
  EXPECT_EQ(cursor.ints(1), after);
}

}  // namespace
