<?xml version="1.0"?>
<!-- Lists the items' names, one a line. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:output method="text"/>
  <xsl:template match="/items">
    <xsl:for-each select="item"><xsl:value-of select="@name"/><xsl:text>&#10;</xsl:text></xsl:for-each>
  </xsl:template>
</xsl:stylesheet>
