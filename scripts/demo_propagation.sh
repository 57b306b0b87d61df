# shellcheck shell=bash disable=SC2016
# (The command lines that are shown are in single quotes, and expand when they run; "F", "V" and the like
# are the demo's.)
# The part of ./paddock demo about privileges that are pushed down a tree, and watched.
: "${project:?}"

# A year of pictures, 24,000 files in 60 folders, that only root may look at.
make_pictures() (
  umask 077
  for month in 01 02 03 04 05 06 07 08 09 10 11 12; do
    for day in 01 07 14 21 28; do
      mkdir -p "$F/$month/$day"
      (cd "$F/$month/$day" && seq -f 'picture %03g.jpg' 400 | tr '\n' '\0' | xargs -0 touch)
    done
  done
)

demo_propagation() {
  demo_heading "Push its privileges down into everything inside, and watch it"
  if ! can_keep_acls; then
    leave_out "privileges and ACLs take root, and a file system with security attributes"
    return
  fi
  step 'find "$F" -mindepth 1 | wc -l'
  step 'as_nobody ls "$F/07/14"'
  expect_status 2
  step 'keelhouse propagate "$F" --group --group-perm --world-perm --acl --dry-run | head -n 5'
  expect_status 0
  expect_text "would change"
  step 'keelhouse propagate "$F" --group --group-perm --world-perm --acl --follow'
  expect_status 0
  expect_text "0 errors"
  step 'keelhouse privs show "$F/07/14/picture 001.jpg"'
  expect_text "group: games"
  expect_text "mode: 640"
  expect_text "inherited"
  step 'as_nobody ls "$F/07/14" | tail -n 1'
  expect_text "picture 400.jpg"

  demo_heading "Again: what is as it should be is not written again"
  step 'keelhouse propagate "$F" --group --group-perm --world-perm --acl --follow'
  expect_status 0
  expect_text " 0 changed, 0 errors"
}
