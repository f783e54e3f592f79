# The demo customer of scripts/run and scripts/cluster, sourced by both. Its credentials are
# fixed so that they can be printed and used in the README; a real customer gets random
# ones from scripts/add-customer. scripts/demo-data.sql stores the digest of the second key.
# Environment: WEBAPI_DEMO_DB (webapi_demo; its InfoDB is <name>_info).
demo=${WEBAPI_DEMO_DB:-webapi_demo}
info=${demo}_info
token="token-$demo"
terminal_key=demo-terminal-key
admin_tool_key=demo-admin-tool-key
admin_token=demo-admin-api-token
customer_user=${demo}_user
tid=$(printf '1.1001' | base64)      # terminal 1, device 1001
person=$(printf '1.1001' | base64)   # person uid 1, pid 1001

# Creates the InfoDB and the demo customer with its demo data once; later calls keep them.
#   demo_customer PORT CLIENT...   the server at 127.0.0.1:PORT, reached by CLIENT (a mariadb
#                                  command line with all rights) and by scripts/add-customer
demo_customer() {
    local port=$1 here
    shift
    here=$(dirname "${BASH_SOURCE[0]}")
    if [ -n "$("$@" -N -e "SHOW DATABASES LIKE '$demo'")" ]; then
        echo "demo: reusing the demo databases $info and $demo"
        return 0
    fi
    echo "demo: creating the InfoDB $info and the demo customer $demo"
    # Left over from a demo database dropped by hand; the customer is made afresh.
    "$@" -e "DROP USER IF EXISTS '$customer_user'@'127.0.0.1', '$customer_user'@'localhost';"
    "$@" "$info" -e "DELETE FROM \`schemas\` WHERE token = '$token'" 2>/dev/null || true
    printf 'key=%s\nadmin-token=%s\n' "$terminal_key" "$admin_token" |
        "$here/add-customer" --port "$port" --infodb "$info" --token "$token" --user "$customer_user" \
            --devices 1000-1999 --secrets - --admin-login vedouci "$demo" >/dev/null
    "$@" "$demo" < "$here/demo-data.sql"
}
