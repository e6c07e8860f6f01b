# pvbconditioner wants to know its installation directory.
if [ -z "${MVKDIR+set}" ]; then
  export MVKDIR=/usr/share/pvbconditioner
fi
